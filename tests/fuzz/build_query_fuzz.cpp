// Fuzz target for the query builder: the first two bytes choose the type, the rest is the query
// text. Whatever builds must parse back to one question with the name that was asked for.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "dns/query_builder.h"
#include "dns/response_parser.h"

namespace {

// The name decoder's view of what the encoder wrote, where the two agree: labels of 1..191
// bytes (192 and up read as pointers) and at most 98 of them (the decoder's step budget).
bool expected_name(std::string_view text, std::uint16_t type, std::string& out) {
  std::vector<std::string_view> labels;
  for (std::size_t start = 0; start <= text.size();) {
    const auto dot = text.find('.', start);
    const auto end = dot == std::string_view::npos ? text.size() : dot;
    if (end > start) labels.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  if (type == k_type_ptr) {
    labels = std::vector<std::string_view>(labels.rbegin(), labels.rend());
    labels.push_back("in-addr");
    labels.push_back("arpa");
  }
  if (labels.size() > 98) return false;
  out.clear();
  for (auto label : labels) {
    if (label.size() > 191) return false;
    out.append(label).push_back('.');
  }
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  static constexpr std::uint16_t k_types[] = {k_type_a, k_type_ns, k_type_cname, k_type_ptr, k_type_mx, k_type_txt};
  const std::uint16_t type = k_types[data[0] % std::size(k_types)];
  const std::string text(reinterpret_cast<const char*>(data + 1), size - 1);

  DNS_RES_RECORD query;
  if (!build_query(query, text, type)) return 0;
  std::string expected;
  if (!expected_name(text, type, expected)) return 0;

  std::uint16_t id = 0;
  std::vector<DNS_RES_RECORD> q, an, ns, ar;
  const unsigned end = parse_response(nullptr, 0, query.packet, id, q, an, ns, ar, false);
  if (end != query.packet.size() || q.size() != 1 || q[0].name != expected || q[0].type != type ||
      q[0].class_ != k_class_in || id != query.id || query.packet[1] != 0 || id < 10 || id > 99) {
    std::abort();
  }
  return 0;
}
