#pragma once

#include <cstddef>
#include <list>
#include <mutex>

#include <openssl_support/openssl_ptr.h>
#include <orv/sec/crypto/common/crypto_allocator.h>

namespace orv::sec::crypto {

using openssl_support::X509Ptr;

/// Keeps the last few certificates in their parsed form, since a judgement looks at the same ones
/// again and again and OpenSSL takes longer to parse one than to verify its signature.
///
/// A certificate is found by its bytes alone, so what comes out is what a parse would give; callers
/// share it and do not change it. Any thread.
class CertificateCache {
public:
    static constexpr std::size_t kMaxEntries = 16;
    /// A longer one is not kept.
    static constexpr std::size_t kMaxEntryBytes = std::size_t{8} * 1024;

    /// The one of the process. Never destroyed: the library may be used while it ends.
    static CertificateCache& Instance();

    /// Null when it is not in the cache.
    X509Ptr Find(const unsigned char* der, std::size_t size);
    void Keep(const unsigned char* der, std::size_t size, X509& certificate);

private:
    struct Entry {
        common::ByteVector der;
        X509Ptr certificate;
    };

    std::mutex mMutex;
    /// The one used last first.
    std::list<Entry> mEntries;
};

}  // namespace orv::sec::crypto
