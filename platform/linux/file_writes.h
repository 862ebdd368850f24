/// What became of the files that a thread wrote through the platform's calls: the driver reports to nobody that a card
/// could not be stored, but whoever called it, on the thread that it runs on, may ask here.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>

namespace platform {

struct file_writes_t {
    size_t written = 0;   // files that appeared, whole
    std::string failure;  // the first file or folder that did not, and why: "'/x/y': No space left on device"; or empty
};

/// From now on this thread's count. `appears` is called with the path of each file that has been written to the disk,
/// right before it gets its name: what it notes, and the file, tell a later process whether that went through.
using appears_t = std::function<void(const std::filesystem::path& path)>;
void begin_file_writes(appears_t appears = {});
/// What this thread wrote since: streams that were opened for writing ("w"), and folders. What is appended to a file,
/// the log, does not count.
file_writes_t file_writes();

/// For the calls that write.
void note_appearing(const std::string& path) noexcept;
void note_written() noexcept;
void note_failure(std::string where, int error) noexcept;

}  // namespace platform
