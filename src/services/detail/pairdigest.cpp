#include "services/detail/pairdigest.h"

#include "operations/operationcontrol.h"
#include "platform/posix/filedescriptor.h"
#include "platform/posix/posixerror.h"
#include "services/directorytools.h"

#include <fcntl.h>
#include <openssl/evp.h>
#include <sys/stat.h>
#include <unistd.h>

#include <memory>
#include <stdexcept>

namespace quillorn::detail {

namespace {

struct DigestContextDeleter {
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};

} // namespace

Sha256 fileDigest(const std::filesystem::path &file, OperationControl &control,
                  std::vector<unsigned char> &buffer)
{
    const FileDescriptor handle(::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    if (!handle)
        throwPosixError(file);
    const int fd = handle.get(); // closed on every way out; a close error changes nothing read
    struct stat status {};
    if (::fstat(fd, &status) != 0)
        throwPosixError(file);
    if (!S_ISREG(status.st_mode))
        throwPosixError(file, EINVAL); // replaced by something else since it was listed
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);

    const std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!context || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        throw std::runtime_error("SHA-256 is not available.");
    control.check();
    for (;;) {
        const ssize_t count = ::read(fd, buffer.data(), buffer.size());
        if (count < 0) {
            if (errno == EINTR)
                continue;
            throwPosixError(file);
        }
        if (count == 0)
            break;
        EVP_DigestUpdate(context.get(), buffer.data(), std::size_t(count));
        control.add(count);
        control.check();
    }
    Sha256 digest{};
    unsigned int length = 0;
    EVP_DigestFinal_ex(context.get(), digest.data(), &length);
    return digest;
}

PairDigest::PairDigest()
    : m_leftBuffer(DirectoryTools::digestChunk), m_rightBuffer(DirectoryTools::digestChunk),
      m_helper([this] { serve(); })
{
}

PairDigest::~PairDigest()
{
    {
        std::lock_guard lock(m_lock);
        m_quit = true;
    }
    m_changed.notify_all();
    m_helper.join();
}

void PairDigest::serve()
{
    std::unique_lock lock(m_lock);
    for (;;) {
        m_changed.wait(lock, [this] { return m_quit || m_job; });
        if (m_quit)
            return;
        const std::filesystem::path &file = *m_job;
        OperationControl &control = *m_control;
        lock.unlock();
        Sha256 result{};
        std::exception_ptr error;
        try {
            result = fileDigest(file, control, m_leftBuffer);
        } catch (...) {
            error = std::current_exception();
        }
        lock.lock();
        m_result = result;
        m_error = error;
        m_job = nullptr;
        m_done = true;
        m_changed.notify_all();
    }
}

std::pair<Sha256, Sha256> PairDigest::digests(const std::filesystem::path &left,
                                              const std::filesystem::path &right, OperationControl &control)
{
    {
        std::lock_guard lock(m_lock);
        m_job = &left;
        m_control = &control;
        m_done = false;
    }
    m_changed.notify_all();
    Sha256 rightDigest{};
    std::exception_ptr rightError;
    try {
        rightDigest = fileDigest(right, control, m_rightBuffer);
    } catch (...) {
        rightError = std::current_exception();
    }
    std::unique_lock lock(m_lock);
    m_changed.wait(lock, [this] { return m_done; });
    if (m_error)
        std::rethrow_exception(m_error);
    if (rightError)
        std::rethrow_exception(rightError);
    return {m_result, rightDigest};
}

} // namespace quillorn::detail
