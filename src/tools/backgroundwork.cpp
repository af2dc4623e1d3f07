#include "tools/backgroundwork.h"

#include <thread>

namespace quillorn::detail {

void startDetached(std::function<void()> job)
{
    std::thread(std::move(job)).detach();
}

} // namespace quillorn::detail
