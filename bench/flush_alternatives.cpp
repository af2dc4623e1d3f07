// How to make 20,000 freshly written 4 KiB files (in 200 folders) durable, timed
// from the first write to the last flush, in a folder on the volume to measure:
//   syncfs     one syncfs(2) of the volume at the end (what the engine does on
//              local volumes, where syncfs reports every file's write-back error)
//   pool N     fsync(2) of each file and folder from N threads, so the journal
//              can commit many of them together
//   early N    as pool N, with each file's write-back started by
//              sync_file_range(2) as soon as it is written (what the engine does)
//   serial     fsync(2) of each file and folder as it is written (rsync --fsync)
//   flush_alternatives FOLDER [RUNS] [WAY...]   (all ways when none is named)
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace {

class FlushPool {
public:
    explicit FlushPool(unsigned threads)
    {
        for (unsigned i = 0; i < threads; ++i)
            m_threads.emplace_back([this] { run(); });
    }
    ~FlushPool()
    {
        {
            std::lock_guard guard(m_lock);
            m_done = true;
        }
        m_ready.notify_all();
        for (std::thread &thread : m_threads)
            thread.join();
    }
    void submit(int descriptor)
    {
        std::unique_lock guard(m_lock);
        m_space.wait(guard, [this] { return m_queue.size() < 256; });
        m_queue.push_back(descriptor);
        m_ready.notify_one();
    }

private:
    void run()
    {
        for (;;) {
            int descriptor;
            {
                std::unique_lock guard(m_lock);
                m_ready.wait(guard, [this] { return m_done || !m_queue.empty(); });
                if (m_queue.empty())
                    return;
                descriptor = m_queue.front();
                m_queue.pop_front();
                m_space.notify_one();
            }
            ::fsync(descriptor);
            ::close(descriptor);
        }
    }
    std::mutex m_lock;
    std::condition_variable m_ready, m_space;
    std::deque<int> m_queue;
    bool m_done = false;
    std::vector<std::thread> m_threads;
};

struct Way {
    const char *name;
    unsigned mode; // 0 syncfs, 1 serial, else a pool of that many threads
    bool early;
};

double writeTree(const std::filesystem::path &root, const Way &way)
{
    const unsigned mode = way.mode;
    char block[4096];
    for (std::size_t i = 0; i < sizeof block; ++i)
        block[i] = static_cast<char>(i * 7);
    const auto start = std::chrono::steady_clock::now();
    ::mkdir(root.c_str(), 0700);
    const int top = ::open(root.c_str(), O_RDONLY | O_DIRECTORY);
    {
        std::optional<FlushPool> pool;
        if (mode > 1)
            pool.emplace(mode);
        const auto done = [&](int descriptor) {
            if (mode == 1) {
                ::fsync(descriptor);
                ::close(descriptor);
            } else if (mode > 1) {
                pool->submit(descriptor);
            } else {
                ::close(descriptor);
            }
        };
        for (int d = 0; d < 200; ++d) {
            std::string folder = std::to_string(d); // "d" + ... trips GCC 12's -Wrestrict at -O3
            folder.insert(0, 1, 'd');
            ::mkdirat(top, folder.c_str(), 0700);
            const int dir = ::openat(top, folder.c_str(), O_RDONLY | O_DIRECTORY);
            for (int f = 0; f < 100; ++f) {
                std::string name = std::to_string(f);
                name.insert(0, 1, 'f');
                const int file = ::openat(dir, name.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
                if (file < 0 || ::write(file, block, sizeof block) != sizeof block) {
                    std::perror("write");
                    std::exit(1);
                }
                if (way.early)
                    ::sync_file_range(file, 0, 0, SYNC_FILE_RANGE_WRITE);
                done(file);
            }
            done(dir);
        }
    }
    if (mode == 0)
        ::syncfs(top);
    else
        ::fsync(top);
    ::close(top);
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc < 2) {
        std::fprintf(stderr, "usage: flush_alternatives FOLDER [RUNS]\n");
        return 2;
    }
    const std::filesystem::path folder = argv[1];
    const int runs = argc > 2 ? std::atoi(argv[2]) : 5;
    const std::vector<Way> all = {{"syncfs", 0, false},   {"early syncfs", 0, true}, {"pool 4", 4, false},
                                  {"pool 16", 16, false}, {"pool 64", 64, false},    {"early 8", 8, true},
                                  {"early 16", 16, true}, {"early 64", 64, true},    {"early 256", 256, true},
                                  {"serial", 1, false}};
    std::vector<Way> ways;
    for (const Way &way : all)
        if (argc <= 3 || std::find_if(argv + 3, argv + argc, [&](const char *name) {
                             return std::string(name) == way.name;
                         }) != argv + argc)
            ways.push_back(way);
    std::vector<std::vector<double>> times(ways.size());
    for (int run = 0; run < runs; ++run)
        for (std::size_t way = 0; way < ways.size(); ++way) { // alternating, so bursts hit all
            const std::filesystem::path root = folder / std::to_string(way);
            ::sync();
            times[way].push_back(writeTree(root, ways[way]));
            std::filesystem::remove_all(root);
        }
    std::printf("%-10s %8s %8s   (20,000 files of 4 KiB made durable, %d runs)\n", "way", "median s",
                "best s", runs);
    for (std::size_t way = 0; way < ways.size(); ++way) {
        std::vector<double> &t = times[way];
        std::sort(t.begin(), t.end());
        std::printf("%-10s %8.3f %8.3f\n", ways[way].name, t[t.size() / 2], t.front());
    }
}
