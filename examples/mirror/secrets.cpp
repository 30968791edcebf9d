#include "secrets.h"

#include <sodium.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

namespace mirror {

namespace {

constexpr char kContext[] = "mirror 1";
constexpr size_t kMaxKeyFile = 256;

static_assert(sizeof(Key) == crypto_scalarmult_BYTES);
static_assert(sizeof(Key) == crypto_aead_chacha20poly1305_ietf_KEYBYTES);
static_assert(kTagSize == crypto_aead_chacha20poly1305_ietf_ABYTES);
static_assert(sizeof(kContext) == crypto_kdf_CONTEXTBYTES + 1);

const unsigned char* bytesOf(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

std::optional<Key> fromHex(const std::string& text) {
    Key key;
    size_t size = 0;
    const char* end = nullptr;
    const bool good =
        sodium_hex2bin(key.data(), key.size(), text.data(), text.size(), nullptr, &size, &end) == 0;
    return good && size == key.size() && end == text.data() + text.size() ? std::optional(key)
                                                                          : std::nullopt;
}

Key derive(const Key& root, uint64_t id) {
    Key key;
    crypto_kdf_derive_from_key(key.data(), key.size(), id, kContext, root.data());
    return key;
}

/// The number of a message as the cipher's nonce.
std::array<unsigned char, crypto_aead_chacha20poly1305_ietf_NPUBBYTES> nonceOf(uint64_t number) {
    std::array<unsigned char, crypto_aead_chacha20poly1305_ietf_NPUBBYTES> nonce{};
    for (size_t i = 0; i < sizeof(number); ++i) {
        nonce[nonce.size() - 1 - i] = static_cast<unsigned char>(number >> (8 * i));
    }
    return nonce;
}

}  // namespace

bool prepareSecrets() {
    return sodium_init() >= 0;
}

Key makeKey() {
    Key key;
    randombytes_buf(key.data(), key.size());
    return key;
}

std::string toHex(const Key& key) {
    char text[2 * sizeof(Key) + 1];
    return sodium_bin2hex(text, sizeof(text), key.data(), key.size());
}

std::optional<Key> readKeyFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    char bytes[kMaxKeyFile];
    file.read(bytes, sizeof(bytes));
    std::string text(bytes, static_cast<size_t>(file.gcount()));
    text.erase(std::find_if(text.rbegin(), text.rend(), [](char c) { return c > ' '; }).base(),
               text.end());
    const auto key = fromHex(text);
    return key && *key != Key{} ? key : std::nullopt;  // zeros stand for no key
}

std::string toBase64(const std::string& bytes) {
    constexpr int kVariant = sodium_base64_VARIANT_ORIGINAL;
    std::string text(sodium_base64_encoded_len(bytes.size(), kVariant), '\0');
    sodium_bin2base64(text.data(), text.size(), bytesOf(bytes.data()), bytes.size(), kVariant);
    text.pop_back();  // the terminating zero
    return text;
}

std::optional<std::string> fromBase64(const std::string& text) {
    std::string bytes(text.size(), '\0');
    size_t size = 0;
    const char* end = nullptr;
    const bool good =
        sodium_base642bin(reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), text.data(),
                          text.size(), nullptr, &size, &end, sodium_base64_VARIANT_ORIGINAL) == 0;
    bytes.resize(size);
    return good && end == text.data() + text.size() ? std::optional(bytes) : std::nullopt;
}

KeyAgreement::KeyAgreement() : _secret(makeKey()) {
    crypto_scalarmult_base(_public.data(), _secret.data());
}

KeyAgreement::~KeyAgreement() {
    sodium_memzero(_secret.data(), _secret.size());
}

std::string KeyAgreement::publicText() const {
    return toHex(_public);
}

std::optional<SessionKeys> KeyAgreement::finish(const Key& shared, const std::string& peerText,
                                                bool isSender) const {
    const auto peer = fromHex(peerText);
    Key common;
    if (!peer || crypto_scalarmult(common.data(), _secret.data(), peer->data()) != 0) {
        return std::nullopt;
    }
    const Key& sender = isSender ? _public : *peer;
    const Key& receiver = isSender ? *peer : _public;
    Key root;
    crypto_generichash_state state;
    crypto_generichash_init(&state, shared.data(), shared.size(), root.size());
    const std::array<const Key*, 3> parts = {&common, &sender, &receiver};
    for (const Key* const part : parts) {
        crypto_generichash_update(&state, part->data(), part->size());
    }
    crypto_generichash_final(&state, root.data(), root.size());
    const uint64_t mine = isSender ? 1 : 2;
    const uint64_t others = isSender ? 2 : 1;
    const SessionKeys keys{derive(root, mine), derive(root, others), derive(root, 2 + mine),
                           derive(root, 2 + others)};
    sodium_memzero(&state, sizeof(state));
    sodium_memzero(common.data(), common.size());
    sodium_memzero(root.data(), root.size());
    return keys;
}

void Cipher::seal(uint64_t number, const char* header, size_t headerSize, const char* plain,
                  size_t size, char* out) const {
    crypto_aead_chacha20poly1305_ietf_encrypt(reinterpret_cast<unsigned char*>(out), nullptr,
                                              bytesOf(plain), size, bytesOf(header), headerSize,
                                              nullptr, nonceOf(number).data(), _key.data());
}

bool Cipher::open(uint64_t number, const char* header, size_t headerSize, const char* sealed,
                  size_t size, char* out) const {
    return size >= kTagSize &&
           crypto_aead_chacha20poly1305_ietf_decrypt(
               reinterpret_cast<unsigned char*>(out), nullptr, nullptr, bytesOf(sealed), size,
               bytesOf(header), headerSize, nonceOf(number).data(), _key.data()) == 0;
}

}  // namespace mirror
