#include "driver/filename_filter.h"

#include <algorithm>

#include "params/arg_list.h"

namespace {

std::vector<std::string> split_pieces(const std::string& value) {
  const char delimiter = value.find('|') != std::string::npos   ? '|'
                         : value.find(',') != std::string::npos ? ','
                                                                : 0;
  if (delimiter == 0) return {value};
  std::vector<std::string> pieces;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = value.find(delimiter, start);
    pieces.push_back(value.substr(start, end - start));
    if (end == std::string::npos) return pieces;
    start = end + 1;
  }
}

// A "*" can only mean "anything" at either end; one inside the text is simply dropped.
void remove_wildcards(std::string& text, std::uint8_t& leading, std::uint8_t& trailing) {
  if (text.empty()) return;
  if (text.front() == '*') leading = 1;
  if (text.back() == '*') trailing = 1;
  std::erase(text, '*');
}

filename_filter build_entry(const std::string& piece) {
  filename_filter entry;
  entry.pattern = piece;
  if (piece == "*") {
    entry.match_all = 1;
    return entry;
  }
  entry.name_pattern = piece;
  if (const auto colon = piece.find(':'); colon != std::string::npos) {
    entry.name_pattern = piece.substr(0, colon);
    entry.second_pattern = piece.substr(colon + 1);
    entry.has_second = 1;
    entry.second_set = entry.second_pattern != "*";
    remove_wildcards(entry.second_pattern, entry.second_leading_wildcard,
                     entry.second_trailing_wildcard);
  }
  remove_wildcards(entry.name_pattern, entry.leading_wildcard, entry.trailing_wildcard);
  entry.rooted = !entry.name_pattern.empty() && entry.name_pattern.front() == '/';
  return entry;
}

bool wildcard_match(std::string_view text, std::string_view pattern, bool leading, bool trailing) {
  if (leading && trailing) return text.find(pattern) != std::string_view::npos;
  if (leading) return text.ends_with(pattern);
  if (trailing) return text.starts_with(pattern);
  return text == pattern;
}

// The second pattern narrows the same name: "ns*:*example*" keeps the names that start with
// "ns" and also hold "example". Host names carry no folder, so this is its useful reading.
bool entry_matches(const filename_filter& entry, std::string_view folder, std::string_view name) {
  if (entry.match_all) return true;
  const std::string_view subject = entry.rooted ? folder : name;
  if (!wildcard_match(subject, entry.name_pattern, entry.leading_wildcard, entry.trailing_wildcard))
    return false;
  return !entry.second_set || wildcard_match(name, entry.second_pattern,
                                             entry.second_leading_wildcard,
                                             entry.second_trailing_wildcard);
}

}  // namespace

std::vector<filename_filter> build_filters(const std::vector<std::string>& patterns) {
  std::vector<filename_filter> filters;
  for (const std::string& value : patterns)
    for (const std::string& piece : split_pieces(to_lower_ascii(value)))
      filters.push_back(build_entry(piece));
  return filters;
}

bool filter_accepts(const std::vector<filename_filter>& filters, std::string_view line) {
  if (line.empty()) return false;
  if (filters.empty()) return true;
  // Split like a file path; a host name has no "/" and is all name part. A line ending in
  // "/" names a folder only and has nothing to compare.
  const std::size_t slash = line.rfind('/');
  const std::string folder =
      slash == std::string_view::npos ? std::string() : to_lower_ascii(line.substr(0, slash));
  const std::string name =
      to_lower_ascii(slash == std::string_view::npos ? line : line.substr(slash + 1));
  if (name.empty()) return false;
  return std::any_of(filters.begin(), filters.end(), [&](const filename_filter& entry) {
    return entry_matches(entry, folder, name);
  });
}
