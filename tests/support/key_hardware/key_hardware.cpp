#include "key_hardware/key_hardware.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "custody/pkcs11_module.h"

namespace orv::sec::crypto::test {

namespace {

constexpr int kHangGuardMs = 20000;
constexpr const char* kModule = "/usr/lib/softhsm/libsofthsm2.so";
constexpr const char* kSecurityOfficersPin = "87654321";

void Require(bool condition, const char* what) {
    if (!condition) {
        throw std::runtime_error(what);
    }
}

CK_UTF8CHAR_PTR ToUtf8(std::string& text) {
    return reinterpret_cast<CK_UTF8CHAR_PTR>(text.data());
}

// SoftHSM always has one more slot, with a token that waits to be initialised.
CK_SLOT_ID FreeSlot(CK_FUNCTION_LIST& functions) {
    CK_ULONG count = 0;
    functions.C_GetSlotList(CK_TRUE, nullptr, &count);
    std::vector<CK_SLOT_ID> slots(count);
    Require(functions.C_GetSlotList(CK_TRUE, slots.data(), &count) == CKR_OK, "slots of SoftHSM");
    return slots.back();
}

void InitializeToken(CK_FUNCTION_LIST& functions, CK_SLOT_ID slot, std::string label) {
    label.resize(32, ' ');
    std::string officersPin = kSecurityOfficersPin;
    std::string pin = SoftwareToken::kPin;
    CK_SESSION_HANDLE session = CK_INVALID_HANDLE;
    Require(
        functions.C_InitToken(slot, ToUtf8(officersPin), officersPin.size(), ToUtf8(label)) ==
                CKR_OK &&
            functions.C_OpenSession(slot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr,
                                    &session) == CKR_OK &&
            functions.C_Login(session, CKU_SO, ToUtf8(officersPin), officersPin.size()) == CKR_OK &&
            functions.C_InitPIN(session, ToUtf8(pin), pin.size()) == CKR_OK &&
            functions.C_CloseSession(session) == CKR_OK,
        "a token of SoftHSM");
}

}  // namespace

SoftwareTpm::SoftwareTpm() {
    // The stack tells of each failure that is wanted here.
    ::setenv("TSS2_LOG", "all+NONE", 1);
    Start();
}

SoftwareTpm::~SoftwareTpm() {
    Stop();
}

host::TpmKeyStorage SoftwareTpm::Storage() const {
    return {"swtpm:path=" + mDirectory.File("socket")};
}

void SoftwareTpm::Start() {
    const std::string socket = "type=unixio,path=" + mDirectory.File("socket");
    const std::string state = "dir=" + mDirectory.Path().string();
    // swtpm tells its process id here once it listens.
    const std::string announcement = mDirectory.File("pid");
    std::filesystem::remove(announcement);
    Require(::mkfifo(announcement.c_str(), 0600) == 0, "mkfifo");
    pollfd ready{::open(announcement.c_str(), O_RDWR | O_CLOEXEC), POLLIN, 0};
    mProcess = ::fork();
    if (mProcess == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        ::dup2(::open("/dev/null", O_WRONLY | O_CLOEXEC), STDERR_FILENO);
        ::execlp("swtpm", "swtpm", "socket", "--tpm2", "--tpmstate", state.c_str(), "--server",
                 socket.c_str(), "--ctrl", (socket + ".ctrl").c_str(), "--flags",
                 "not-need-init,startup-clear", "--pid", ("file=" + announcement).c_str(), nullptr);
        ::_exit(127);
    }
    const bool isReady = ::poll(&ready, 1, kHangGuardMs) == 1;
    ::close(ready.fd);
    Require(isReady, "swtpm does not start");
}

void SoftwareTpm::Stop() {
    if (mProcess > 0) {
        ::kill(mProcess, SIGKILL);
        ::waitpid(mProcess, nullptr, 0);
        mProcess = -1;
    }
}

void SoftwareTpm::Replace() {
    Stop();
    std::filesystem::remove(mDirectory.File("tpm2-00.permall"));
    Start();
}

std::string SoftwareToken::Directory() {
    static const testing_support::TemporaryDirectory directory;
    std::string tokens = directory.File("tokens");
    if (std::filesystem::create_directory(tokens)) {
        std::ofstream(directory.File("softhsm2.conf"))
            << "directories.tokendir = " << tokens
            << "\nobjectstore.backend = file\nlog.level = ERROR\n";
        ::setenv("SOFTHSM2_CONF", directory.File("softhsm2.conf").c_str(), 1);
    }
    return tokens;
}

SoftwareToken::SoftwareToken(const std::string& pinFile) {
    static int count = 0;
    Directory();
    mStorage = {kModule, "unit " + std::to_string(++count), {}, pinFile, ""};
    CK_FUNCTION_LIST& functions = Pkcs11Module::Load(kModule).Functions();
    InitializeToken(functions, FreeSlot(functions), mStorage.token);
    WritePin(kPin);
}

void SoftwareToken::WritePin(const std::string& pin, mode_t mode) const {
    std::filesystem::remove(mStorage.pinFile);
    std::ofstream(mStorage.pinFile) << pin;
    ::chmod(mStorage.pinFile.c_str(), mode);
}

}  // namespace orv::sec::crypto::test
