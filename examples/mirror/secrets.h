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

/// Prepares the library that does the work; false when it cannot be used. Call it first.
bool prepareSecrets();

/// A new random key.
Key makeKey();

/// A key as hexadecimal text.
std::string toHex(const Key& key);

/// The key that a file holds as hexadecimal text; nothing when it holds anything else.
std::optional<Key> readKeyFile(const std::string& path);

///@{
/// Bytes as text and back; nothing for other text.
std::string toBase64(const std::string& bytes);
std::optional<std::string> fromBase64(const std::string& text);
///@}

/// The keys of one session, as one end uses them.
struct SessionKeys {
    Key sendTexts;
    Key receiveTexts;
    Key sendDatagrams;
    Key receiveDatagrams;
};

/// One end's part of the key agreement: X25519 with a new pair of keys for each session, mixed with
/// the key that both ends share. Who lacks the shared key gets other session keys, and who learns
/// it later cannot read what was sent before. Without a shared key, all zeros take its place: the
/// session is then safe from listeners but not from someone in the middle.
class KeyAgreement : public NIVUR::NoCopyable {
  public:
    KeyAgreement();
    ~KeyAgreement();

    /// What the other end has to know, as hexadecimal text.
    std::string publicText() const;

    /// The session's keys; nothing when the peer's text is not a public key.
    std::optional<SessionKeys> finish(const Key& shared, const std::string& peerText,
                                      bool isSender) const;

  private:
    Key _secret{};
    Key _public{};
};

constexpr size_t kTagSize = 16;

/// Encrypts and authenticates with ChaCha20-Poly1305 (RFC 8439). A number must never be used for
/// two messages of the same key.
class Cipher {
  public:
    explicit Cipher(const Key& key) : _key(key) {}

    /// Writes `size` + kTagSize bytes to `out`. `header` is authenticated only.
    void seal(uint64_t number, const char* header, size_t headerSize, const char* plain,
              size_t size, char* out) const;

    /// Writes `size` - kTagSize bytes to `out`; false when the message is not genuine.
    bool open(uint64_t number, const char* header, size_t headerSize, const char* sealed,
              size_t size, char* out) const;

  private:
    Key _key;
};

}  // namespace mirror

#endif
