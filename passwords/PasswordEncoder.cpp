#include "passwords/PasswordEncoder.h"

#include <sodium.h>

#include <array>
#include <cassert>
#include <stdexcept>

namespace tessaly {

namespace {

// One salt for all: the form is compared and stored without a place for a salt of each user's own. It keeps
// ready-made tables of other systems from serving here. Changing it locks every user out.
constexpr std::array<unsigned char, crypto_pwhash_argon2id_SALTBYTES> Salt{
    't', 'e', 's', 's', 'a', 'l', 'y', '-', 'u', 's', 'e', 'r', 's', '-', 'v', '1'};

// libsodium's limits for interactive use, written out: were the library to raise its own, no stored password
// would match any more.
constexpr unsigned long long Passes = 2;
constexpr std::size_t MemoryBytes = 64U << 20U;

// Argon2id gives 16 bytes at least and base64 makes 24 characters of them. 12 bytes make exactly the 16
// that fit, without padding, and 96 bits are still far beyond guessing; so the first 12 are kept.
constexpr std::size_t HashBytes = crypto_pwhash_argon2id_BYTES_MIN;
constexpr std::size_t KeptBytes = 12;
constexpr int Variant = sodium_base64_VARIANT_ORIGINAL;
static_assert(sodium_base64_ENCODED_LEN(KeptBytes, Variant) == PasswordEncoder::EncodedLength + 1);

}  // namespace

std::string PasswordEncoder::encode(std::string_view password) const {
    assert(!password.empty());
    if (sodium_init() < 0)
        throw std::runtime_error("The password cannot be encoded: libsodium does not start");
    std::array<unsigned char, HashBytes> hash{};
    if (crypto_pwhash_argon2id(hash.data(), hash.size(), password.data(), password.size(), Salt.data(),
                               Passes, MemoryBytes, crypto_pwhash_argon2id_ALG_ARGON2ID13) != 0)
        throw std::runtime_error("The password cannot be encoded: not enough memory");
    std::array<char, EncodedLength + 1> text{};  // with the final NUL that libsodium writes
    sodium_bin2base64(text.data(), text.size(), hash.data(), KeptBytes, Variant);
    return text.data();
}

}  // namespace tessaly
