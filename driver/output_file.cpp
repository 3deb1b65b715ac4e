#include "driver/output_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "driver/error_printer.h"

bool output_failed(std::ostream& out) {
  out.flush();
  if (out) return false;
  print_error("prob writing results: %s\n", std::strerror(errno != 0 ? errno : EIO));
  return true;
}

output_file::~output_file() {
  write_all();
  // Not retried on EINTR, like every close in zib: the descriptor may already be gone.
  if (m_owned) ::close(m_descriptor);
}

bool output_file::open(const std::string& path, bool append) {
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | (append ? O_APPEND : O_TRUNC), 0666);
  if (descriptor == -1) return false;
  m_descriptor = descriptor;
  m_owned = true;
  return true;
}

bool output_file::holds_data() const {
  struct stat file {};
  return ::fstat(m_descriptor, &file) == 0 && S_ISREG(file.st_mode) && file.st_size > 0;
}

output_file::int_type output_file::overflow(int_type c) {
  if (traits_type::eq_int_type(c, traits_type::eof())) return traits_type::not_eof(c);
  m_pending.push_back(traits_type::to_char_type(c));
  if (m_pending.size() >= k_flush_at && sync() != 0) return traits_type::eof();
  return c;
}

std::streamsize output_file::xsputn(const char* s, std::streamsize n) {
  m_pending.append(s, static_cast<std::size_t>(n));
  if (m_pending.size() >= k_flush_at && sync() != 0) return 0;
  return n;
}

bool output_file::holds_back() {
  if (m_regular < 0) {
    struct stat file {};
    m_regular = ::fstat(m_descriptor, &file) == 0 && S_ISREG(file.st_mode) ? 1 : 0;
  }
  return m_regular == 1 && m_pending.size() < k_flush_at;
}

bool output_file::write_all() {
  m_regular = 0;
  return sync() == 0;
}

int output_file::sync() {
  if (holds_back()) return 0;
  std::size_t done = 0;
  while (done < m_pending.size()) {
    const ssize_t count = ::write(m_descriptor, m_pending.data() + done, m_pending.size() - done);
    // A stop signal arrives without SA_RESTART, so a write blocked on a slow reader may be
    // interrupted; the rows must still go out whole.
    if (count == -1 && errno == EINTR) continue;
    if (count <= 0) {
      m_pending.clear();  // the run stops on the failure; nothing more will be written
      return -1;
    }
    done += static_cast<std::size_t>(count);
  }
  m_pending.clear();
  return 0;
}
