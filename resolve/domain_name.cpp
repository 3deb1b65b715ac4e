#include "resolve/domain_name.h"

#include "dns/query_builder.h"

std::string canonical_name(std::string_view text) {
  std::string name;
  for (const char c : text) name += c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  while (!name.empty() && name.front() == '.') name.erase(0, 1);
  if (name.empty()) return ".";
  if (name.back() != '.') name += '.';
  return name;
}

std::string parent_name(std::string_view name) {
  if (name == ".") return ".";
  const auto dot = name.find('.');
  return dot == std::string_view::npos || dot + 1 >= name.size() ? std::string(".") : std::string(name.substr(dot + 1));
}

bool within_zone(std::string_view name, std::string_view zone) {
  if (zone == ".") return true;
  if (name.size() < zone.size() || name.substr(name.size() - zone.size()) != zone) return false;
  return name.size() == zone.size() || name[name.size() - zone.size() - 1] == '.';
}

std::size_t label_count(std::string_view name) {
  if (name == ".") return 0;
  std::size_t count = 0;
  for (const char c : name) count += c == '.';
  return count;
}

std::string name_below(std::string_view name, std::string_view zone) {
  std::string below(name);
  while (label_count(below) > label_count(zone) + 1) below = parent_name(below);
  return below;
}

std::vector<std::uint8_t> name_wire(std::string_view name) {
  if (name == ".") return {0};
  return encode_name(name).value_or(std::vector<std::uint8_t>{0});
}
