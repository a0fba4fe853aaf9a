#pragma once

namespace vintrel {

// Names of stores, and ids of keys and certificates in them.

/// The one id under which the bundle of root certificates is asked for; the key-management store.
inline constexpr const char* kTrustStoreIdKoru = "KORU";
/// The unit's base certificate, as callers name it.
inline constexpr const char* kCertIdBase = "BASE";
/// The client certificate, as callers name it.
inline constexpr const char* kCertIdTiv = "TIV";
/// The accepted key pair in the client store, and the name of that store.
inline constexpr const char* kKeyIdTiv = "TIV";
/// The pending key pair in the client store, for which a request is outstanding.
inline constexpr const char* kKeyIdTivCsr = "TIV_CSR";
/// The scratch certificate in the client store.
inline constexpr const char* kKeyIdTivTmp = "TIV_TMP";

// Ids in the key-management store.

inline constexpr const char* kKoruCertIdVehicleRoot = "VEHICLE_ROOT_CERT";
inline constexpr const char* kKoruKeyIdPss = "PSS_KEY";
/// The unit's base key pair with its certificate; the key signs containers.
inline constexpr const char* kKoruCertIdEcuBase = "ECU_BASE_CERT";
inline constexpr const char* kKoruKeyIdEcuIndividual = "ECU_INDIVIDUAL_KEY";
/// The root that verifies certificates from the backend.
inline constexpr const char* kKoruCertIdProductRoot = "PRODUCT_PKI_ROOT_CERT";

}  // namespace vintrel
