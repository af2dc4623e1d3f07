#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace quillorn::detail {

// SHA-256 fed in pieces, read once as 64 lower-case hex digits.
class Sha256 {
public:
    Sha256();
    ~Sha256();
    Sha256(const Sha256 &) = delete;
    Sha256 &operator=(const Sha256 &) = delete;

    void add(std::string_view bytes);
    std::string hex();

private:
    struct Context;
    std::unique_ptr<Context> m_context;
};

} // namespace quillorn::detail
