#include "operations/detail/sha256.h"

#include <openssl/evp.h>

#include <stdexcept>

namespace quillorn::detail {

struct Sha256::Context {
    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest{EVP_MD_CTX_new(), EVP_MD_CTX_free};
};

Sha256::Sha256() : m_context(std::make_unique<Context>())
{
    if (!m_context->digest || EVP_DigestInit_ex(m_context->digest.get(), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available");
}

Sha256::~Sha256() = default;

void Sha256::add(std::string_view bytes)
{
    if (EVP_DigestUpdate(m_context->digest.get(), bytes.data(), bytes.size()) != 1)
        throw std::runtime_error("SHA-256 failed");
}

std::string Sha256::hex()
{
    unsigned char value[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_DigestFinal_ex(m_context->digest.get(), value, &length) != 1)
        throw std::runtime_error("SHA-256 failed");
    static constexpr char digits[] = "0123456789abcdef";
    std::string text;
    for (unsigned int index = 0; index < length; ++index) {
        text.push_back(digits[value[index] >> 4]);
        text.push_back(digits[value[index] & 0xf]);
    }
    return text;
}

} // namespace quillorn::detail
