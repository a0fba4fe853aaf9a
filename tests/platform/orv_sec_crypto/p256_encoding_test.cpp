#include "keys/p256_encoding.h"

#include <gtest/gtest.h>

#include "certificate_zoo/certificate_zoo.h"
#include "keys/ec_key.h"

namespace orv::sec::crypto::test {

namespace {

using common::ByteVector;

ByteVector Bytes(const std::string& text) {
    return {text.begin(), text.end()};
}

TEST(P256Encoding, IsThatOfOpenSsl) {
    for (int round = 0; round < 20; ++round) {
        const auto made = testing_support::MakeKey();
        const ByteVector publicDer = Bytes(testing_support::PublicKeyDer(made));
        EXPECT_EQ(EncodeP256PublicKey(*made), publicDer);
        const PkeyPtr publicKey = DecodeP256PublicKey(publicDer);
        ASSERT_NE(publicKey, nullptr);
        EXPECT_EQ(EVP_PKEY_eq(publicKey.get(), made.get()), 1);

        const ByteVector privateDer = EncodePrivateKey(*made);
        const PkeyPtr privateKey = DecodeP256PrivateKey(privateDer);
        ASSERT_NE(privateKey, nullptr);
        EXPECT_EQ(EncodePrivateKey(*privateKey), privateDer);
        const ByteVector content = Bytes("content");
        EXPECT_TRUE(Verify(*publicKey, Sign(*privateKey, content), content));
    }
}

TEST(P256Encoding, LeavesAllElseToOpenSsl) {
    const auto made = testing_support::MakeKey();
    const auto refuses = [](ByteVector der) {
        return DecodeP256PublicKey(der) == nullptr && DecodeP256PrivateKey(der) == nullptr;
    };
    for (const ByteVector& good :
         {Bytes(testing_support::PublicKeyDer(made)), EncodePrivateKey(*made)}) {
        ByteVector longer = good;
        longer.push_back(0);
        EXPECT_TRUE(refuses(longer));
        EXPECT_TRUE(refuses({good.begin(), good.end() - 1}));
        // Behind the fixed bytes the first of the point, then its last: no point of the curve.
        for (const std::size_t position : {std::size_t{1}, good.size() - 65, good.size() - 1}) {
            ByteVector changed = good;
            changed[position] ^= 1;
            EXPECT_TRUE(refuses(changed)) << position;
        }
    }
    EXPECT_TRUE(refuses({}));
    for (const char* const type : {"P-384", "RSA2048"}) {
        EXPECT_TRUE(EncodeP256PublicKey(*testing_support::MakeKey(type)).empty()) << type;
    }
}

}  // namespace

}  // namespace orv::sec::crypto::test
