#include "trace_file.h"

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace gatewayd {

trace_file::trace_file(int descriptor) : descriptor_(descriptor) {}

trace_file::~trace_file() {
    if (writer_.joinable()) {
        {
            const std::lock_guard guard(queue_mutex_);
            ends_ = true;
        }
        changed_.notify_one();
        writer_.join();
    }
    close(descriptor_);
}

void trace_file::begin() {
    writer_ = std::thread([this] { serve(); });
}

void trace_file::write(std::string_view line) {
    const std::lock_guard guard(file_mutex_);
    write_queued();
    append(std::string(line) + "\n");
}

void trace_file::write_soon(std::string_view line) {
    {
        const std::lock_guard guard(queue_mutex_);
        queued_.append(line) += '\n';
    }
    changed_.notify_one();
}

void trace_file::append(const std::string &lines) const {
    for (std::size_t done = 0; done < lines.size();) {
        const ssize_t count = ::write(descriptor_, lines.data() + done, lines.size() - done);
        if (count <= 0 && errno != EINTR) {
            return;
        }
        done += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
}

/** With file_mutex_ held. */
void trace_file::write_queued() {
    std::string lines;
    {
        const std::lock_guard guard(queue_mutex_);
        lines.swap(queued_);
    }
    append(lines);
}

void trace_file::serve() {
    for (bool ends = false; !ends;) {
        {
            std::unique_lock guard(queue_mutex_);
            changed_.wait(guard, [this] { return ends_ || !queued_.empty(); });
            ends = ends_;
        }
        const std::lock_guard guard(file_mutex_);
        write_queued();
    }
}

} // namespace gatewayd
