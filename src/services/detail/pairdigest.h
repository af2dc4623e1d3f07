#pragma once

#include <array>
#include <condition_variable>
#include <exception>
#include <filesystem>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

namespace quillorn {

class OperationControl;

namespace detail {

using Sha256 = std::array<unsigned char, 32>;

// SHA-256 of a file through OpenSSL's EVP interface, read in chunks of the
// buffer's size into the buffer; checks and credits the control after every
// chunk. Only a regular file is read: the file is opened without following a
// link and without blocking, so a FIFO swapped in is never waited on.
Sha256 fileDigest(const std::filesystem::path &file, OperationControl &control,
                  std::vector<unsigned char> &buffer);

// Hashes the two files of a pair at once: the left one on a helper thread that
// lives as long as this object, the right one on the caller's. Holds one
// chunk buffer per side. When both fail, the left file's error is the one
// thrown, as if they had been read one after the other.
class PairDigest {
public:
    PairDigest();
    ~PairDigest();
    PairDigest(const PairDigest &) = delete;
    PairDigest &operator=(const PairDigest &) = delete;

    std::pair<Sha256, Sha256> digests(const std::filesystem::path &left, const std::filesystem::path &right,
                                      OperationControl &control);

private:
    void serve();

    std::vector<unsigned char> m_leftBuffer;
    std::vector<unsigned char> m_rightBuffer;
    std::mutex m_lock;
    std::condition_variable m_changed;
    // The job handed to the helper; guarded by m_lock.
    const std::filesystem::path *m_job = nullptr;
    OperationControl *m_control = nullptr;
    bool m_done = false;
    bool m_quit = false;
    Sha256 m_result{};
    std::exception_ptr m_error;
    std::thread m_helper;
};

} // namespace detail
} // namespace quillorn
