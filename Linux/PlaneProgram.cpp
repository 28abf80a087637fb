#include "Linux/PlaneProgram.h"

#include "Linux/ForwardingPlaneObject.h"
#include "Linux/PlaneError.h"
#include "Platform/Base/Assert.h"
#include "Platform/Base/UniqueFd.h"

#include <array>
#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <linux/if_link.h>
#include <net/if.h>
#include <string_view>
#include <sys/mman.h>
#include <system_error>

namespace Linux {

namespace {

// Where the filter stands at a tunnel's egress. Others may have theirs before and behind it.
constexpr uint32_t tunnelHandle = 1;
constexpr uint32_t tunnelPriority = 0xA590;
constexpr const char* tunnelProgram = "arpsup_tunnel";

std::string errorText(int error) {
    return std::generic_category().message(error < 0 ? -error : error);
}

/// Keeps what libbpf and the verifier have to say while it lives; libbpf takes a bare function.
class LibbpfLog {
  public:
    LibbpfLog() {
        current().clear();
        previous_ = libbpf_set_print(keep);
    }
    ~LibbpfLog() { libbpf_set_print(previous_); }
    LibbpfLog(const LibbpfLog&) = delete;
    LibbpfLog& operator=(const LibbpfLog&) = delete;

    const std::string& text() const { return current(); }

  private:
    static std::string& current() {
        static std::string text;
        return text;
    }
    static int keep(libbpf_print_level level, const char* format, va_list arguments) {
        constexpr size_t longest = 65'536;
        if (level == LIBBPF_DEBUG || current().size() > longest) {
            return 0;
        }
        std::array<char, 16'384> line;
        int length = std::vsnprintf(line.data(), line.size(), format, arguments);
        current() += line.data();
        return length;
    }

    libbpf_print_fn_t previous_;
};

bpf_tc_hook hookOf(uint32_t ifIndex, bpf_tc_attach_point point) {
    bpf_tc_hook hook{};
    hook.sz = sizeof hook;
    hook.ifindex = static_cast<int>(ifIndex);
    hook.attach_point = point;
    return hook;
}

bpf_tc_opts tunnelPlace() {
    bpf_tc_opts options{};
    options.sz = sizeof options;
    options.handle = tunnelHandle;
    options.priority = tunnelPriority;
    return options;
}

enum class Occupant { nobody, ours, other };

/// Whose filter stands where the plane's belongs.
Occupant occupantOf(uint32_t ifIndex) {
    bpf_tc_hook hook = hookOf(ifIndex, BPF_TC_EGRESS);
    bpf_tc_opts options = tunnelPlace();
    if (bpf_tc_query(&hook, &options) != 0) {
        return Occupant::nobody;
    }
    Vela::UniqueFd fd(bpf_prog_get_fd_by_id(options.prog_id));
    bpf_prog_info info{};
    uint32_t length = sizeof info;
    if (!fd || bpf_obj_get_info_by_fd(fd.get(), &info, &length) != 0) {
        return Occupant::other;
    }
    return std::string_view(info.name) == tunnelProgram ? Occupant::ours : Occupant::other;
}

void detach(uint32_t ifIndex) {
    if (occupantOf(ifIndex) == Occupant::ours) {
        bpf_tc_hook hook = hookOf(ifIndex, BPF_TC_EGRESS);
        bpf_tc_opts options = tunnelPlace();
        bpf_tc_detach(&hook, &options);
        // The hook itself stays: others may have come to use it.
    }
}

[[noreturn]] void failToAttach(uint32_t ifIndex, int error, const LibbpfLog& log) {
    std::array<char, IF_NAMESIZE> name{};
    if_indextoname(ifIndex, name.data());
    throw PlaneError("the forwarding plane cannot be attached to device " +
                     std::to_string(ifIndex) + " " + name.data() + ": " + errorText(error) +
                     (log.text().empty() ? "" : "\n" + log.text()));
}

void attachFilter(uint32_t ifIndex, bpf_tc_attach_point point, bpf_tc_opts options, int program,
                  uint32_t flags) {
    LibbpfLog log;
    bpf_tc_hook hook = hookOf(ifIndex, point);
    int error = bpf_tc_hook_create(&hook);
    if (error == 0 || error == -EEXIST) {
        options.prog_fd = program;
        options.flags = flags;
        error = bpf_tc_attach(&hook, &options);
    }
    if (error != 0) {
        failToAttach(ifIndex, error, log);
    }
}

} // namespace

void PlaneProgram::Close::operator()(bpf_object* object) const noexcept {
    bpf_object__close(object);
}

PlaneProgram::PlaneProgram() {
    LibbpfLog log;
    bpf_object_open_opts options{};
    options.sz = sizeof options;
    options.object_name = "arpsup";
    object_.reset(
        bpf_object__open_mem(forwardingPlaneObject, sizeof forwardingPlaneObject, &options));
    int error = object_ ? bpf_object__load(object_.get()) : -errno;
    if (error != 0) {
        throw PlaneError("the forwarding plane cannot be loaded: " + errorText(error) +
                         (error == -EPERM ? "; that takes CAP_BPF and CAP_NET_ADMIN" : "") + "\n" +
                         log.text());
    }
    void* memory =
        mmap(nullptr, sizeof(Plane::State), PROT_READ | PROT_WRITE, MAP_SHARED, map(".bss"), 0);
    if (memory == MAP_FAILED) {
        throw PlaneError("the memory of the forwarding plane cannot be mapped: " +
                         errorText(errno));
    }
    state_ = static_cast<Plane::State*>(memory);
}

PlaneProgram::~PlaneProgram() {
    munmap(const_cast<Plane::State*>(state_), sizeof(Plane::State));
}

int PlaneProgram::program(const char* name) const {
    const bpf_program* found = bpf_object__find_program_by_name(object_.get(), name);
    Vela::assertThat(found, "found");
    return bpf_program__fd(found);
}

int PlaneProgram::map(const char* name) const {
    const bpf_map* found = bpf_object__find_map_by_name(object_.get(), name);
    Vela::assertThat(found, "found");
    return bpf_map__fd(found);
}

bool PlaneProgram::portIs(uint32_t ifIndex, const Plane::Port& port) noexcept {
    return bpf_map_update_elem(map("arpsup_ports"), &ifIndex, &port, BPF_ANY) == 0;
}

void PlaneProgram::portDel(uint32_t ifIndex) noexcept {
    bpf_map_delete_elem(map("arpsup_ports"), &ifIndex);
}

void PlaneProgram::attachTrap(uint32_t ifIndex) {
    bpf_tc_opts options{};
    options.sz = sizeof options;
    attachFilter(ifIndex, BPF_TC_EGRESS, options, program("arpsup_trap"), 0);
    uint32_t first = 0;
    if (int error = bpf_map_update_elem(map("arpsup_snoop"), &first, &ifIndex, BPF_ANY)) {
        failToAttach(ifIndex, error, LibbpfLog());
    }
}

void PlaneProgram::attachFabric(uint32_t ifIndex) {
    bpf_tc_opts options{};
    options.sz = sizeof options;
    attachFilter(ifIndex, BPF_TC_INGRESS, options, program("arpsup_fabric"), 0);
    state_->fabricIfIndex = ifIndex;
}

void PlaneProgram::attachInject(uint32_t ifIndex) {
    bpf_tc_opts options{};
    options.sz = sizeof options;
    attachFilter(ifIndex, BPF_TC_INGRESS, options, program("arpsup_inject"), 0);
    LibbpfLog log;
    int error = bpf_xdp_attach(static_cast<int>(ifIndex), program("arpsup_strip"),
                               XDP_FLAGS_DRV_MODE, nullptr);
    if (error != 0) {
        failToAttach(ifIndex, error, log);
    }
    state_->injectIfIndex = ifIndex;
}

void PlaneProgram::attachTunnel(uint32_t ifIndex) {
    Occupant occupant;
    {
        LibbpfLog unheard;
        occupant = occupantOf(ifIndex);
    }
    if (occupant == Occupant::other) {
        throw PlaneError("the forwarding plane cannot be attached to device " +
                         std::to_string(ifIndex) + ": somebody else's filter stands at priority " +
                         std::to_string(tunnelPriority));
    }
    attachFilter(ifIndex, BPF_TC_EGRESS, tunnelPlace(), program(tunnelProgram), BPF_TC_F_REPLACE);
}

void PlaneProgram::detachTunnel(uint32_t ifIndex) noexcept {
    LibbpfLog unheard;
    detach(ifIndex);
}

void PlaneProgram::detachLeftovers() noexcept {
    LibbpfLog unheard;
    struct if_nameindex* devices = if_nameindex();
    for (struct if_nameindex* device = devices; device && device->if_index != 0; ++device) {
        detach(device->if_index);
    }
    if_freenameindex(devices);
}

} // namespace Linux
