#ifndef MIRROR_SECRETS_H
#define MIRROR_SECRETS_H

#include <nivur/no_copyable.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace mirror {

/// 32 secret bytes.
using Key = std::array<unsigned char, 32>;

/// Initializes libsodium; false if that fails. Call it first.
bool prepareSecrets();

/// A new random key.
Key makeKey();

/// A key as hexadecimal text.
std::string toHex(const Key& key);

/// Reads a key as hexadecimal text from a file; nullopt if the file has other contents.
std::optional<Key> readKeyFile(const std::string& path);

///@{
/// Encodes and decodes Base64; nullopt for other text.
std::string toBase64(const std::string& bytes);
std::optional<std::string> fromBase64(const std::string& text);
///@}

/// One end's keys of a session.
struct SessionKeys {
    Key sendTexts;
    Key receiveTexts;
    Key sendDatagrams;
    Key receiveDatagrams;
};

/// One end of the key agreement: X25519 with a new key pair for each session, mixed with the key
/// that both ends share. An end without the shared key derives other session keys, and learning it
/// later does not decrypt earlier sessions (forward secrecy). Without a shared key, zeros take its
/// place: the session is then safe from eavesdroppers but not from a man in the middle.
class KeyAgreement : public NIVUR::NoCopyable {
  public:
    KeyAgreement();
    ~KeyAgreement();

    /// The public key for the other end, as hexadecimal text.
    std::string publicText() const;

    /// Derives the session's keys; nullopt if `peerText` is no valid public key.
    std::optional<SessionKeys> finish(const Key& shared, const std::string& peerText,
                                      bool isSender) const;

  private:
    Key _secret{};
    Key _public{};
};

constexpr size_t kTagSize = 16;

/// Encrypts and authenticates with ChaCha20-Poly1305 (RFC 8439). `number` is the nonce: it must
/// never be used for two messages with the same key.
class Cipher {
  public:
    explicit Cipher(const Key& key) : _key(key) {}

    /// Writes `size` + kTagSize bytes to `out`. `header` is authenticated only.
    void seal(uint64_t number, const char* header, size_t headerSize, const char* plain,
              size_t size, char* out) const;

    /// Writes `size` - kTagSize bytes to `out`; false if the message is not authentic.
    bool open(uint64_t number, const char* header, size_t headerSize, const char* sealed,
              size_t size, char* out) const;

  private:
    Key _key;
};

}  // namespace mirror

#endif
