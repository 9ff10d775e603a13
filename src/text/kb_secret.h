#pragma once

// The envelope of a KB file: header, optional encryption and CRC trailer.

#include <sodium.h>

#include <cstring>
#include <vector>

#include "network/error.h"
#include "text/kb_format.h"

namespace kelva::kb {

static_assert(kSaltSize == crypto_pwhash_SALTBYTES);
static_assert(kNonceSize == crypto_aead_xchacha20poly1305_ietf_NPUBBYTES);
static_assert(kTagSize == crypto_aead_xchacha20poly1305_ietf_ABYTES);

/// The key of a protected file: Argon2id over the password and the file's
/// salt, at libsodium's interactive limits (fixed for layout version 1).
/// Wiped when it goes out of scope.
/// Starts libsodium (safe to call often); Error when it cannot start.
inline void start_crypto() {
  if (sodium_init() < 0) throw Error(K_ERROR_ERROR, "the cryptography library did not start");
}

struct SecretKey {
  unsigned char bytes[crypto_aead_xchacha20poly1305_ietf_KEYBYTES];

  SecretKey(const char* password, const unsigned char* salt) {
    start_crypto();
    const std::size_t length = std::strlen(password);
    require(length <= crypto_pwhash_PASSWD_MAX);
    if (crypto_pwhash(bytes, sizeof bytes, password, length, salt,
                      crypto_pwhash_OPSLIMIT_INTERACTIVE, crypto_pwhash_MEMLIMIT_INTERACTIVE,
                      crypto_pwhash_ALG_ARGON2ID13) != 0)
      throw Error(K_ERROR_NO_MEMORY);
  }
  ~SecretKey() { sodium_memzero(bytes, sizeof bytes); }
  SecretKey(const SecretKey&) = delete;
  SecretKey& operator=(const SecretKey&) = delete;
};

/// The bytes of a KB file holding `payload` of `kind`, encrypted when
/// `password` is neither null nor empty.
std::vector<unsigned char> seal(Kind kind, const std::vector<unsigned char>& payload,
                                const char* password);

/// The payload of the KB file in `data`: checks the magic and CRC
/// (bad_kb_format), the version (bad_kb_version), the kind (bad_kb_type)
/// and, for a protected file, the password (bad_kb_password).
std::vector<unsigned char> open(const unsigned char* data, std::size_t size, Kind kind,
                                const char* password);

}  // namespace kelva::kb
