// The bare OpenSSL calls of a forced update, from the trigger to the stored certificate: the
// baseline of the group `pass`, and of the passes in the group `link`. No protocol, no log; the
// backend's part is done outside of the measured time. Each operation is done once, on what a store
// holds: certificates in PEM, private keys in PKCS #8 under AES-256-GCM.
//
// Up to the request:
//   base chain parsed, for the VIN and for the container;
//   the stored certificate judged: chain and root parsed, private key unwrapped, decoded and found
//   to be the certificate's, VIN signed and the signature verified, both signatures of the path
//   verified;
//   key pair made, encoded and wrapped; request signed and encoded;
//   base key unwrapped and decoded; container signed and written as PEM.
// After the answer:
//   chain and root parsed, public key compared, both signatures of the path verified; the key
//   wrapped anew for its new place.
//
// It is all done twice: on a store in memory, and on an SQLite file with the settings of the secure
// store, read by prepared statements and written in two transactions, one before the request and
// one after the answer.

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <exception>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include "benchmarks/bare_crypto.h"
#include "benchmarks/bare_store.h"

namespace {

using namespace bare_pass;

const std::string kVin = "VIN";
const std::string kCommonName = kVin + ":C003";

/// What stands in the unit and at the backend before the pass.
struct World {
    explicit World(Store& unit) : store(unit) {
        const Key rootKey = NewKey();
        const Key baseKey = NewKey();
        const Key oldKey = NewKey();
        const Certificate root = Issue("root", Role::kCa, rootKey.get(), nullptr, rootKey.get());
        ca = Issue("ca", Role::kCa, caKey.get(), root.get(), rootKey.get());
        store.Put({{"root", ToPem(root.get())},
                   {"base", IssueChain(baseKey.get())},
                   {"base key", Wrap(wrappingKey, "base key", EncodeKey(baseKey.get()))},
                   {"client", IssueChain(oldKey.get())},
                   {"client key", Wrap(wrappingKey, "client key", EncodeKey(oldKey.get()))}});
    }

    std::string IssueChain(EVP_PKEY* key) const {
        return ToPem(Issue(kCommonName, Role::kUnit, key, ca.get(), caKey.get()).get()) +
               ToPem(ca.get());
    }

    Bytes UnwrapKey(const std::string& id) const { return Unwrap(wrappingKey, id, store.Get(id)); }

    Store& store;
    WrappingKey wrappingKey = NewWrappingKey();
    Key caKey = NewKey();
    Certificate ca;
};

/// Names and key are the caller's; here each signature of the path.
void CheckPath(World& world, const Chain& chain) {
    const Certificate root = FromPem(world.store.Get("root"));
    Require(X509_verify(chain[0].get(), X509_get0_pubkey(chain[1].get())) == 1);
    Require(X509_verify(chain[1].get(), X509_get0_pubkey(root.get())) == 1);
}

void JudgeStoredCertificate(World& world) {
    const Chain chain = ParseChain(world.store.Get("client"));
    const Key key = DecodeKey(world.UnwrapKey("client key"));
    EVP_PKEY* const certified = X509_get0_pubkey(chain.front().get());
    Require(EVP_PKEY_eq(certified, key.get()) == 1);
    Verify(certified, Sign(key.get(), kVin), kVin);
    CheckPath(world, chain);
}

/// All that comes before the first byte to the backend; the key that the request is for.
Key PrepareRequest(World& world) {
    const Chain baseChain = ParseChain(world.store.Get("base"));
    JudgeStoredCertificate(world);
    Key key = NewKey();
    world.store.Put(
        {{"pending key", Wrap(world.wrappingKey, "pending key", EncodeKey(key.get()))}});
    const Key baseKey = DecodeKey(world.UnwrapKey("base key"));
    MakeContainer(baseKey.get(), baseChain, MakeRequest(key.get(), kCommonName));
    return key;
}

void AcceptAnswer(World& world, EVP_PKEY* key, const std::string& chainPem) {
    const Chain chain = ParseChain(chainPem);
    Require(EVP_PKEY_eq(X509_get0_pubkey(chain.front().get()), key) == 1);
    CheckPath(world, chain);
    world.store.Put(
        {{"client", chainPem},
         {"client key", Wrap(world.wrappingKey, "client key", world.UnwrapKey("pending key"))}});
}

double Seconds(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

double Median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values.at(values.size() / 2);
}

/// Peak resident memory of this program alone: `ru_maxrss` would count that of the one that
/// started it, too.
long PeakKib() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.rfind("VmHWM:", 0) == 0) {
            return std::stol(line.substr(line.find_first_of("0123456789")));
        }
    }
    throw std::runtime_error("no VmHWM in /proc/self/status");
}

/// Wall and CPU time, in milliseconds.
struct Spent {
    double wall{Seconds(CLOCK_MONOTONIC) * 1e3};
    double cpu{Seconds(CLOCK_PROCESS_CPUTIME_ID) * 1e3};
};

Spent Since(const Spent& start) {
    const Spent now;
    return {now.wall - start.wall, now.cpu - start.cpu};
}

/// The medians of the passes on a store.
nlohmann::json Measure(Store& store, int rounds, std::chrono::milliseconds pause) {
    World world(store);
    std::map<std::string, std::vector<double>> samples;
    for (int round = 0; round < rounds; ++round) {
        // As in a service that idles between its passes.
        std::this_thread::sleep_for(pause);
        const Spent start;
        const Key key = PrepareRequest(world);
        const Spent request = Since(start);
        const std::string chain = world.IssueChain(key.get());
        const Spent answer;
        AcceptAnswer(world, key.get(), chain);
        const Spent check = Since(answer);
        samples["request_wall_ms"].push_back(request.wall);
        samples["request_cpu_ms"].push_back(request.cpu);
        samples["wall_ms"].push_back(request.wall + check.wall);
        samples["cpu_ms"].push_back(request.cpu + check.cpu);
    }
    nlohmann::json medians;
    for (const auto& [name, values] : samples) {
        medians[name] = Median(values);
    }
    return medians;
}

}  // namespace

int main(int argc, char* argv[]) {
    try {
        CLI::App app("The bare OpenSSL calls of one pass, timed");
        int rounds = 7;
        int pause = 50;
        std::string directory;
        app.add_option("--rounds", rounds, "Passes to time")->check(CLI::Range(1, 100000));
        app.add_option("--pause", pause, "Idle milliseconds before each")
            ->check(CLI::Range(0, 10000));
        app.add_option("--directory", directory, "An empty one, for the file of the store")
            ->required();
        CLI11_PARSE(app, argc, argv);
        Store memory;
        nlohmann::json result{{"memory", Measure(memory, rounds, std::chrono::milliseconds(pause))},
                              {"peak_kib", PeakKib()}};
        FileStore file(directory + "/bare-store.db");
        result["file"] = Measure(file, rounds, std::chrono::milliseconds(pause));
        std::cout << result << std::endl;
        return 0;
    } catch (const std::exception& exception) {
        std::cerr << exception.what() << std::endl;
        return 1;
    }
}
