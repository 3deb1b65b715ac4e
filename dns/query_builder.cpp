#include "dns/query_builder.h"

#include <arpa/inet.h>
#include <sys/time.h>

#include <cstdlib>

namespace {

// Header offsets and values of the query (RFC 1035 section 4.1.1).
constexpr std::uint8_t k_flags_rd = 0x01;  // only RD: a standard query, recursion desired (unless
                                           // the query goes to an authoritative server)
constexpr std::uint16_t k_qdcount = 1;

// Labels up to 255 bytes are written as they are, not RFC 1035's 63: a length byte of 64 or
// more goes out unchanged and the server decides what it makes of it.
constexpr std::size_t k_max_label_size = 255;

constexpr int k_id_digits = 2;  // IDs 10..99

// Splits on '.' and drops empty parts, so leading, trailing and repeated dots vanish.
// Parts are not trimmed.
std::vector<std::string_view> split_labels(std::string_view text) {
  std::vector<std::string_view> parts;
  while (!text.empty()) {
    const auto dot = text.find('.');
    const auto part = text.substr(0, dot);
    if (!part.empty()) parts.push_back(part);
    if (dot == std::string_view::npos) break;
    text.remove_prefix(dot + 1);
  }
  return parts;
}

// Writes the labels in the given order and the root byte; nullopt (nothing half written
// reaches the caller) when one is too long.
template <typename Labels>
std::optional<std::vector<std::uint8_t>> write_labels(const Labels& labels) {
  std::vector<std::uint8_t> wire;
  for (std::string_view label : labels) {
    if (label.size() > k_max_label_size) return std::nullopt;
    wire.push_back(static_cast<std::uint8_t>(label.size()));
    wire.insert(wire.end(), label.begin(), label.end());
  }
  wire.push_back(0);
  return wire;
}

void put16(std::vector<std::uint8_t>& out, std::uint16_t value) {
  out.push_back(static_cast<std::uint8_t>(value >> 8));
  out.push_back(static_cast<std::uint8_t>(value & 0xFF));
}

std::optional<std::vector<std::uint8_t>> encode_qname(std::string_view text, std::uint16_t type,
                                                     const query_settings& settings) {
  if (settings.ip6_reverse) return encode_ip6_reverse_name(text);
  switch (type) {
    case k_type_a:
    case k_type_ns:
    case k_type_cname:
    case k_type_mx:
    case k_type_txt:
      return encode_name(text);
    case k_type_ptr:
      return encode_reverse_name(text);
    default:
      // No encoder for other types: the name is left out entirely, not even the root byte,
      // and QTYPE follows the header directly. The command line never gets here.
      return std::vector<std::uint8_t>{};
  }
}

void assemble_query(DNS_RES_RECORD& record, std::uint16_t id, std::span<const std::uint8_t> qname, std::string text,
                    std::uint16_t type, const query_settings& settings) {
  std::vector<std::uint8_t> packet;
  // The ID goes out low byte first on purpose: dumps then show the chosen number in byte 0,
  // and replies are matched on the raw bytes, so the order never matters to the server.
  packet.push_back(static_cast<std::uint8_t>(id & 0xFF));
  packet.push_back(static_cast<std::uint8_t>(id >> 8));
  packet.push_back(settings.recursion_desired ? k_flags_rd : 0);
  packet.push_back(0);  // RA, Z, RCODE
  put16(packet, k_qdcount);
  put16(packet, 0);  // ANCOUNT
  put16(packet, 0);  // NSCOUNT
  put16(packet, settings.edns ? 1 : 0);  // ARCOUNT: the OPT record, if any
  packet.insert(packet.end(), qname.begin(), qname.end());
  put16(packet, type);
  put16(packet, k_class_in);
  if (settings.edns) {
    const auto opt = opt_record_wire(*settings.edns);
    packet.insert(packet.end(), opt.begin(), opt.end());
  }
  record.packet = shared_bytes(std::move(packet));
  record.name = std::move(text);
  record.id = id;
  record.type = type;
  record.class_ = k_class_in;
}

}  // namespace

std::optional<std::vector<std::uint8_t>> encode_name(std::string_view text) {
  const auto labels = split_labels(text);
  if (labels.empty()) return std::nullopt;  // empty text, or nothing but dots
  return write_labels(labels);
}

std::optional<std::vector<std::uint8_t>> encode_reverse_name(std::string_view text) {
  if (text.empty()) return std::nullopt;
  // The address is not checked: any dotted text is reversed as it stands, so "host.example"
  // becomes example.host.in-addr.arpa and an IPv6 text stays one label.
  std::vector<std::string_view> labels = split_labels(text);
  if (labels.empty()) return std::nullopt;  // only dots: there is no address to reverse
  std::vector<std::string_view> reversed(labels.rbegin(), labels.rend());
  reversed.push_back("in-addr");
  reversed.push_back("arpa");
  return write_labels(reversed);
}

std::optional<std::vector<std::uint8_t>> encode_ip6_reverse_name(std::string_view text) {
  constexpr std::size_t k_ipv6_size = 16;
  std::uint8_t address[k_ipv6_size];
  const std::string terminated(text);  // inet_pton reads a C string: a NUL inside would end it
  if (text.find('\0') != std::string_view::npos || ::inet_pton(AF_INET6, terminated.c_str(), address) != 1)
    return std::nullopt;
  constexpr char k_hex[] = "0123456789abcdef";
  std::vector<std::uint8_t> wire;
  for (std::size_t i = k_ipv6_size; i-- > 0;) {  // the low nibble of the last byte first
    const auto low = static_cast<std::uint8_t>(k_hex[address[i] & 0x0F]);
    const auto high = static_cast<std::uint8_t>(k_hex[address[i] >> 4]);
    wire.insert(wire.end(), {1, low, 1, high});
  }
  for (std::string_view label : {"ip6", "arpa"}) {
    wire.push_back(static_cast<std::uint8_t>(label.size()));
    wire.insert(wire.end(), label.begin(), label.end());
  }
  wire.push_back(0);
  return wire;
}

std::string random_digits(int count) {
  // Seeded once per process from the microseconds of the time of day.
  static const bool seeded = [] {
    timeval now{};
    gettimeofday(&now, nullptr);
    std::srand(static_cast<unsigned>(now.tv_usec));
    return true;
  }();
  (void)seeded;
  const auto draw = [](char lo, char hi) { return static_cast<char>(lo + std::rand() % (hi - lo + 1)); };
  std::string digits(1, draw('1', '9'));
  for (int i = 1; i < count; ++i) digits.push_back(draw('0', '9'));
  return digits;
}

std::string_view name_fault(std::string_view text, const query_settings& settings) {
  if (settings.ip6_reverse && !text.empty())
    return encode_ip6_reverse_name(text) ? std::string_view() : "not an IPv6 address";
  const auto labels = split_labels(text);
  if (labels.empty()) return text.empty() ? "empty name" : "no label";
  for (std::string_view label : labels) {
    if (label.size() > k_max_label_size) return "label over 255 bytes";
  }
  return {};
}

bool build_query(DNS_RES_RECORD& record, std::string text, std::uint16_t type) {
  return build_query_for(record, std::move(text), type, type);
}

bool build_query_for(DNS_RES_RECORD& record, std::string text, std::uint16_t lookup_type,
                     std::uint16_t type, const query_settings& settings) {
  record.clear();
  // The ID is drawn first, so a failed build still uses up its draw, as every build does.
  const auto id = static_cast<std::uint16_t>(std::stoi(random_digits(k_id_digits)));
  const auto qname = encode_qname(text, lookup_type, settings);
  if (!qname) return false;
  assemble_query(record, id, *qname, std::move(text), type, settings);
  return true;
}

void build_query_wire(DNS_RES_RECORD& record, std::span<const std::uint8_t> qname, std::string text,
                      std::uint16_t type, const query_settings& settings) {
  record.clear();
  const auto id = static_cast<std::uint16_t>(std::stoi(random_digits(k_id_digits)));
  assemble_query(record, id, qname, std::move(text), type, settings);
}
