#include <csignal>
#include <cstring>
#include <map>

#include <dlt/dlt.h>
#include <dlt/dlt_common.h>
#include <pthread.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): sigaction is not in <csignal>
#include <syslog.h>

#include "ara_log_host/line_format.h"
#include "dlt_output.h"
#include "sigpipe_block.h"

namespace ara::log::internal {

namespace {

/// The library truncates messages at 1390 bytes, headers included.
constexpr std::size_t kMaxPayload = 1024;

DltOutput::LevelListener gListener{nullptr};

void OnLevelChanged(char* contextId, std::uint8_t level, std::uint8_t /*traceStatus*/) {
    if (level <= static_cast<std::uint8_t>(LogLevel::kVerbose)) {
        gListener({contextId, strnlen(contextId, DLT_ID_SIZE)}, static_cast<LogLevel>(level));
    }
}

/// Both enumerations use the same numbers.
DltLogLevelType ToDltLevel(LogLevel level) {
    return static_cast<DltLogLevelType>(level);
}

/// Starts the library and its threads with all signals blocked, which are for the process's own
/// threads, and restores the disposition of SIGPIPE.
bool StartLibrary() {
    sigset_t all{};
    sigset_t former{};
    struct sigaction formerAction {};
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &former);
    sigaction(SIGPIPE, nullptr, &formerAction);
    dlt_log_set_level(LOG_ERR);
    const bool isStarted = dlt_init() == DLT_RETURN_OK;
    sigaction(SIGPIPE, &formerAction, nullptr);
    pthread_sigmask(SIG_SETMASK, &former, nullptr);
    return isStarted;
}

/// The length of the longest prefix that fits and does not split a UTF-8 character.
std::size_t PieceSize(std::string_view text) {
    if (text.size() <= kMaxPayload) {
        return text.size();
    }
    std::size_t size = kMaxPayload;
    while (size > kMaxPayload - 3 && (static_cast<unsigned char>(text[size]) & 0xc0U) == 0x80U) {
        --size;
    }
    return size;
}

class LibdltOutput final : public DltOutput {
public:
    void AddContext(const std::string& contextId, const std::string& description,
                    LogLevel level) override {
        const SigpipeBlock block;
        DltContext& context = mContexts[contextId];
        dlt_register_context_ll_ts(&context, contextId.c_str(), description.c_str(),
                                   ToDltLevel(level), DLT_TRACE_STATUS_OFF);
        dlt_register_log_level_changed_callback(&context, &OnLevelChanged);
        block.Discard();
    }

    void Write(const std::string& contextId, LogLevel level, const std::string& text) override {
        const SigpipeBlock block;
        DltContext& context = mContexts.at(contextId);
        const std::string escaped = ara_log_host::EscapeText(text, "\n    ");
        std::string_view left = escaped;
        do {
            const std::size_t size = PieceSize(left);
            WritePiece(context, level, std::string(left.substr(0, size)));
            left.remove_prefix(size);
        } while (!left.empty());
        block.Discard();
    }

private:
    static void WritePiece(DltContext& context, LogLevel level, const std::string& text) {
        DltContextData message{};
        if (dlt_user_log_write_start(&context, &message, ToDltLevel(level)) == DLT_RETURN_TRUE) {
            dlt_user_log_write_utf8_string(&message, text.c_str());
            dlt_user_log_write_finish(&message);
        }
    }

    std::map<std::string, DltContext> mContexts;
};

}  // namespace

std::unique_ptr<DltOutput> DltOutput::Open(const std::string& appId, const std::string& description,
                                           LevelListener listener) {
    gListener = listener;
    if (!StartLibrary()) {
        return nullptr;
    }
    // The default delays the exit of a process without daemon by ten seconds.
    dlt_set_resend_timeout_atexit(0);
    const SigpipeBlock block;
    dlt_register_app(appId.c_str(), description.c_str());
    block.Discard();
    return std::make_unique<LibdltOutput>();
}

}  // namespace ara::log::internal
