#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace Vela {

/// A few bytes that outlive the process, `kill -9` included: a file mapped shared. What is written
/// to bytes() is kept from that moment on; only the machine's death loses it.
///
/// The file: 8 bytes magic, 4 bytes layout version, 4 bytes count n of the bytes that follow the
/// 64 bytes of this header, all in the machine's order, the rest of the header zero; then the n
/// bytes. It is allocated in full when it is made.
class PersistedImage {
  public:
    /// Takes up the bytes that an earlier process left at `path`. Where there are none, or what is
    /// there is no image of `bytes` bytes, begins with zeros; see found(). Throws std::system_error
    /// if there cannot be a file.
    PersistedImage(std::string path, size_t bytes);
    PersistedImage(const PersistedImage&) = delete;
    PersistedImage& operator=(const PersistedImage&) = delete;
    ~PersistedImage();

    /// Valid as long as this object.
    std::span<uint8_t> bytes() const { return bytes_; }

    /// Whether an earlier process's bytes were taken up.
    bool found() const { return found_; }
    /// Why a file that was there was replaced; empty if none was.
    const std::string& replaced() const { return replaced_; }

  private:
    void map(int fd, size_t bytes);

    const std::string path_;
    void* base_ = nullptr;
    std::span<uint8_t> bytes_;
    bool found_ = false;
    std::string replaced_;
};

} // namespace Vela
