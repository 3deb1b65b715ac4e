#include "driver/stdin_reader.h"

#include <string_view>

namespace qvportdir {

bool stdin_stream::read_line(std::string& line, bool trim) {
  line.clear();
  if (!usable() || at_end_) return false;
  // Once fgets has failed the stream stays finished: a terminal could otherwise hand out
  // more lines after the user's end-of-file key.
  if (std::fgets(buffer_.data(), static_cast<int>(buffer_.size()), stream_) == nullptr) {
    at_end_ = true;
    return false;
  }
  line.assign(buffer_.data());
  bytes_read_ += line.size();
  if (trim) {
    while (!line.empty() && (line.back() == '\r' || line.back() == '\n')) line.pop_back();
  }
  return true;
}

bool stdin_stream_ex::init_to_stdin() {
  clear();
  source_ = source::standard_input;
  return true;
}

bool stdin_stream_ex::read(std::string& line, bool trim) {
  if (source_ != source::standard_input) {
    line.clear();
    return false;
  }
  return read_line(line, trim);
}

void stdin_stream_ex::clear() { source_ = source::none; }

}  // namespace qvportdir

bool clean_input_line(std::string& line, bool first_line) {
  constexpr std::string_view byte_order_mark = "\xEF\xBB\xBF";
  if (first_line && line.starts_with(byte_order_mark)) line.erase(0, byte_order_mark.size());
  const auto first = line.find_first_not_of(" \t");
  if (first == std::string::npos) return false;
  line.erase(line.find_last_not_of(" \t") + 1);
  line.erase(0, first);
  return line.front() != '#' && line.front() != ';';
}
