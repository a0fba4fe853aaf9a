#include "x509/certificate_cache.h"

#include <algorithm>

namespace orv::sec::crypto {

namespace {

X509Ptr Share(X509& certificate) {
    X509_up_ref(&certificate);
    return X509Ptr(&certificate);
}

}  // namespace

CertificateCache& CertificateCache::Instance() {
    static auto& instance = *new CertificateCache;
    return instance;
}

X509Ptr CertificateCache::Find(const unsigned char* der, std::size_t size) {
    const std::lock_guard<std::mutex> lock(mMutex);
    const auto found =
        std::find_if(mEntries.begin(), mEntries.end(), [der, size](const Entry& entry) {
            return std::equal(entry.der.begin(), entry.der.end(), der, der + size);
        });
    if (found == mEntries.end()) {
        return nullptr;
    }
    mEntries.splice(mEntries.begin(), mEntries, found);
    return Share(*found->certificate);
}

void CertificateCache::Keep(const unsigned char* der, std::size_t size, X509& certificate) {
    if (size > kMaxEntryBytes) {
        return;
    }
    const std::lock_guard<std::mutex> lock(mMutex);
    mEntries.push_front({common::ByteVector(der, der + size), Share(certificate)});
    if (mEntries.size() > kMaxEntries) {
        mEntries.pop_back();
    }
}

}  // namespace orv::sec::crypto
