#include "Platform/State/DumpContext.h"

#include <cerrno>
#include <cstdio>
#include <poll.h>
#include <unistd.h>

namespace Vela {

namespace {
constexpr size_t pieceBytes = 64 * 1024;
}

void DumpContext::print(int indent, const char* format, ...) {
    text_.append(static_cast<size_t>(indent > 0 ? indent : 0), ' ');
    va_list arguments;
    va_start(arguments, format);
    va_list again;
    va_copy(again, arguments);
    char line[256];
    int length = std::vsnprintf(line, sizeof line, format, arguments);
    va_end(arguments);
    if (length > 0 && static_cast<size_t>(length) >= sizeof line) {
        size_t start = text_.size();
        text_.resize(start + static_cast<size_t>(length) + 1);
        std::vsnprintf(&text_[start], static_cast<size_t>(length) + 1, format, again);
        text_.pop_back();
    } else if (length > 0) {
        text_.append(line, static_cast<size_t>(length));
    }
    va_end(again);
    if (fd_ >= 0 && text_.size() >= pieceBytes) {
        flush();
    }
}

void DumpContext::child(int indent, const char* name, const Entity* entity) {
    if (!entity) {
        print(indent, "%s=NULL\n", name);
    } else if (!dumped_.insert(entity).second) {
        print(indent, "%s=<%s dumped above>\n", name, entity->typeName());
    } else {
        entity->dumpState(*this, indent);
    }
}

void DumpContext::flush() noexcept {
    if (fd_ < 0) {
        return;
    }
    std::string_view rest = text_;
    while (!rest.empty() && !failed_) {
        ssize_t written = write(fd_, rest.data(), rest.size());
        if (written > 0) {
            rest.remove_prefix(static_cast<size_t>(written));
        } else if (written < 0 && errno == EAGAIN) {
            pollfd waiting{fd_, POLLOUT, 0};
            poll(&waiting, 1, -1);
        } else if (written == 0 || errno != EINTR) {
            failed_ = true;
        }
    }
    text_.clear();
}

} // namespace Vela
