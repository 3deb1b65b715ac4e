#include "descriptors.h"

#include <dirent.h>

std::optional<std::size_t> open_descriptor_count() {
  DIR* dir = ::opendir("/proc/self/fd");
  if (dir == nullptr) return std::nullopt;
  std::size_t count = 0;
  while (const dirent* entry = ::readdir(dir))
    if (entry->d_name[0] != '.') ++count;
  ::closedir(dir);
  return count - 1;  // the directory stream's own descriptor
}

scoped_descriptor_limit::scoped_descriptor_limit(rlim_t limit) {
  if (::getrlimit(RLIMIT_NOFILE, &m_saved) != 0) return;
  rlimit lowered = m_saved;
  lowered.rlim_cur = limit;
  m_active = ::setrlimit(RLIMIT_NOFILE, &lowered) == 0;
}

scoped_descriptor_limit::~scoped_descriptor_limit() {
  if (m_active) ::setrlimit(RLIMIT_NOFILE, &m_saved);
}
