// The piped-mode line source: one name per line from standard input (or any stream a test
// hands in), read with fgets over a fixed buffer.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>

#include "params/cmd_params.h"

namespace qvportdir {

// The plain line stream. A line longer than the buffer arrives in several pieces, each of
// them a line to the caller: names are far shorter, and a bounded buffer keeps a hostile
// input from growing memory.
class stdin_stream {
 public:
  static constexpr std::size_t k_buffer_size = 4096;

  explicit stdin_stream(std::FILE* stream = stdin) : stream_(stream) {}

  // False at end of input or on a read error, and from then on. With `trim`, carriage
  // returns and line feeds are removed from the end; blanks and tabs stay.
  bool read_line(std::string& line, bool trim);
  bool usable() const { return stream_ != nullptr; }
  // Bytes read so far, line ends included (a line's bytes up to a NUL in it, if it holds one).
  std::uint64_t bytes_read() const { return bytes_read_; }

 private:
  std::FILE* stream_;
  std::uint64_t bytes_read_ = 0;
  bool at_end_ = false;
  std::array<char, k_buffer_size> buffer_{};
};

// The reader the run loop uses. Directory input is not offered by this tool, so the only
// source it can be bound to is the standard-input stream.
class stdin_stream_ex : public stdin_stream {
 public:
  explicit stdin_stream_ex(cmd_params& config, std::FILE* stream = stdin)
      : stdin_stream(stream), config_(config) {}

  // Selects standard input; always succeeds.
  bool init_to_stdin();
  // False when unbound or at end of input; otherwise the next line.
  bool read(std::string& line, bool trim);
  // Back to the unbound state of a fresh reader.
  void clear();

  const cmd_params& config() const { return config_; }

 private:
  enum class source { none, standard_input };

  cmd_params& config_;
  source source_ = source::none;
};

}  // namespace qvportdir

// -clean_input: removes the blanks and tabs around `line`; false for a line that is then empty
// or a comment (starting with "#" or ";"), which is skipped. The input's first line also loses
// a UTF-8 byte-order mark, which editors on some systems put at the head of a text file and
// which would otherwise be asked as part of the first name.
bool clean_input_line(std::string& line, bool first_line);
