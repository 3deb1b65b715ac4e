// Where the report goes: standard output or a results file, written with write(2) from a
// buffer that the run flushes at the points where rows must be out (after each attempt in the
// sequential run, after each batch of finished names in the bulk run).
#pragma once

#include <ostream>
#include <streambuf>
#include <string>

// Results that cannot be written (disk full, reader gone) must not be lost silently: true when
// flushing `out` failed, after saying why on standard error. errno is cleared before each batch
// of writes, and sockets are closed before rows are written, so a failed write is the last
// failed call and errno still names its cause.
bool output_failed(std::ostream& out);

// Owns the descriptor of a results file (closed by the destructor); standard output is only
// borrowed. Write errors leave errno as write(2) set it, so the run can say why it stopped.
class output_file : public std::streambuf {
 public:
  output_file() = default;  // standard output
  ~output_file() override;
  output_file(const output_file&) = delete;
  output_file& operator=(const output_file&) = delete;

  // Creates or truncates `path` for writing (with `append`, adds to its end); false when it
  // cannot be opened.
  bool open(const std::string& path, bool append = false);
  // True when the report goes to a regular file that already holds something: a run that adds
  // to it (-append, or the shell's >>) continues a report and writes no second header.
  bool holds_data() const;
  // Where the report goes: 1 for standard output, or the results file's descriptor.
  int descriptor() const { return m_descriptor; }
  // Writes whatever is held, and from now on every flush writes: the run's last rows are out,
  // or it says why not.
  bool write_all();

 protected:
  int_type overflow(int_type c) override;
  std::streamsize xsputn(const char* s, std::streamsize n) override;
  int sync() override;

 private:
  // A little over what a big reply's verbose dump takes, so most flushes are one write.
  static constexpr std::size_t k_flush_at = 1 << 16;

  // Nobody reads a regular file while it is written the way a pipe or a terminal is read: rows
  // bound for one are written in blocks of k_flush_at (and at the end), not at every flush.
  bool holds_back();

  std::string m_pending;
  int m_descriptor = 1;
  bool m_owned = false;
  int m_regular = -1;  // whether the descriptor is a regular file; -1: not looked at yet
};
