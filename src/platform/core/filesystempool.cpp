#include "platform/core/filesystempool.h"

#include <QThread>
#include <QThreadPool>
#include <algorithm>

namespace quillorn {

QThreadPool &fileSystemPool()
{
    static QThreadPool pool;
    static const bool configured = [] {
        pool.setMaxThreadCount(std::max(4, QThread::idealThreadCount() * 2));
        return true;
    }();
    (void)configured;
    return pool;
}

} // namespace quillorn
