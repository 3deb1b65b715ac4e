// Descriptor bookkeeping for leak and failure tests: counting this process's open descriptors
// (Linux /proc), and lowering the descriptor limit for a scope so that socket() fails locally.
#pragma once

#include <sys/resource.h>

#include <cstddef>
#include <optional>

// Entries of /proc/self/fd, or nullopt where the system has no such directory.
std::optional<std::size_t> open_descriptor_count();

// Sets the soft RLIMIT_NOFILE to `limit` while alive and puts the old one back afterwards.
// With a limit at or below the lowest free descriptor, every new descriptor fails (EMFILE).
class scoped_descriptor_limit {
 public:
  explicit scoped_descriptor_limit(rlim_t limit);
  ~scoped_descriptor_limit();
  scoped_descriptor_limit(const scoped_descriptor_limit&) = delete;
  scoped_descriptor_limit& operator=(const scoped_descriptor_limit&) = delete;
  bool active() const { return m_active; }

 private:
  rlimit m_saved{};
  bool m_active = false;
};
