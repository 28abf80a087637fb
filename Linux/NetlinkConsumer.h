#pragma once

#include <cstddef>
#include <cstdint>
#include <linux/netlink.h>

namespace Linux {

/// What the kernel keeps and announces over rtnetlink. Its dumps are taken in this order, so that
/// who reads an address or an entry has heard of its device. Neighbours are those of IPv4 and IPv6.
enum class NetlinkKind : uint8_t { links, addresses, neighbors, fdb };
constexpr size_t netlinkKinds = 4;

/// "links" and so on.
const char* toString(NetlinkKind kind);

/// Whether a message is part of a dump, and not the announcement of a change. The kernel fills a
/// part of a dump and queues it a little later: an announcement of the same thing that has come
/// since the dump began is never older than what the dump says of it.
inline bool isDumped(const nlmsghdr& message) {
    return (message.nlmsg_flags & NLM_F_MULTI) != 0;
}

/// Who is told of one kind of thing in one network namespace. Between `resyncStarted` and
/// `resyncFinished` come the messages of a dump and, among them, announcements of changes: what
/// neither has shown by then is gone. If something was lost meanwhile, `resyncStarted` comes again
/// instead. A consumer may ask for another resync in each of these, but not end the Rtnetlink.
class NetlinkConsumer {
  public:
    virtual void resyncStarted() = 0;
    /// RTM_NEW... or RTM_DEL... of the kind. `nlmsg_len` bytes can be read; nothing else is sure.
    /// What is behind the reference lasts for the call.
    virtual void message(const nlmsghdr& message) = 0;
    virtual void resyncFinished() = 0;

  protected:
    ~NetlinkConsumer() = default;
};

} // namespace Linux
