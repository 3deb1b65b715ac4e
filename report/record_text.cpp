#include "report/record_text.h"

#include <algorithm>
#include <array>
#include <span>
#include <string_view>

#include "dns/byte_reader.h"
#include "dns/name_codec.h"
#include "dns/record_types.h"
#include "time/clock.h"
#include "time/datetime_format.h"

namespace {

using byte_span = std::span<const std::uint8_t>;

constexpr std::string_view k_upper_hex = "0123456789ABCDEF";
constexpr std::string_view k_lower_hex = "0123456789abcdef";
constexpr std::string_view k_base64_digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::string_view k_base32hex_digits = "0123456789ABCDEFGHIJKLMNOPQRSTUV";  // RFC 4648 section 7

constexpr std::uint8_t k_space = 0x20;
constexpr std::uint8_t k_delete = 0x7F;

// Mnemonics dig gives certificate types (RFC 4398 section 2.1) and DNSSEC algorithms (the IANA
// registry); other values are shown as numbers.
struct named_value {
  std::uint16_t value;
  std::string_view name;
};
constexpr named_value k_cert_types[] = {{1, "PKIX"},   {2, "SPKI"},   {3, "PGP"},     {4, "IPKIX"},
                                        {5, "ISPKI"},  {6, "IPGP"},   {7, "ACPKIX"},  {8, "IACPKIX"},
                                        {253, "URI"},  {254, "OID"}};
constexpr named_value k_algorithms[] = {
    {1, "RSAMD5"},           {2, "DH"},               {3, "DSA"},          {5, "RSASHA1"},
    {6, "NSEC3DSA"},         {7, "NSEC3RSASHA1"},     {8, "RSASHA256"},    {10, "RSASHA512"},
    {12, "ECCGOST"},         {13, "ECDSAP256SHA256"}, {14, "ECDSAP384SHA384"}, {15, "ED25519"},
    {16, "ED448"},           {252, "INDIRECT"},       {253, "PRIVATEDNS"}, {254, "PRIVATEOID"}};

// TSIG and TKEY errors (RFC 8945 section 5.3) as dig names them: response codes up to 15, the
// TSIG errors 16 to 22; the others, BADCOOKIE among them, as numbers.
constexpr named_value k_key_errors[] = {
    {0, "NOERROR"},     {1, "FORMERR"},     {2, "SERVFAIL"},    {3, "NXDOMAIN"},    {4, "NOTIMP"},
    {5, "REFUSED"},     {6, "YXDOMAIN"},    {7, "YXRRSET"},     {8, "NXRRSET"},     {9, "NOTAUTH"},
    {10, "NOTZONE"},    {11, "RESERVED11"}, {12, "RESERVED12"}, {13, "RESERVED13"}, {14, "RESERVED14"},
    {15, "RESERVED15"}, {16, "BADSIG"},     {17, "BADKEY"},     {18, "BADTIME"},    {19, "BADMODE"},
    {20, "BADNAME"},    {21, "BADALG"},     {22, "BADTRUNC"}};

// SvcParamKeys with a name (RFC 9460 section 14.3.2); dig 9.18 shows the others, dohpath
// included, as "key" and the number.
constexpr std::string_view k_svc_keys[] = {"mandatory", "alpn", "no-default-alpn", "port",
                                           "ipv4hint", "ech", "ipv6hint"};
enum : std::uint16_t { k_svc_mandatory, k_svc_alpn, k_svc_no_default_alpn, k_svc_port, k_svc_ipv4hint,
                       k_svc_ech, k_svc_ipv6hint };

// LOC (RFC 1876): angles in thousandths of a second of arc from 2^31, heights in centimetres
// from 100,000 m below the reference spheroid.
constexpr std::uint32_t k_loc_equator = 0x80000000u;
constexpr std::uint32_t k_loc_max_latitude = 90u * 3600000u;
constexpr std::uint32_t k_loc_max_longitude = 180u * 3600000u;
constexpr std::uint32_t k_loc_altitude_zero = 10000000u;
constexpr std::size_t k_loc_size = 16;

// A type bitmap window holds at most 256 types, 32 bytes (RFC 4034 section 4.1.2).
constexpr std::uint8_t k_max_window_bytes = 32;

// A WKS bitmap covers at most every port, 65536 bits.
constexpr std::size_t k_max_port_bytes = 65536 / 8;

// APL address families (RFC 3123 section 4): IPv4 and IPv6.
constexpr std::uint16_t k_apl_ipv4 = 1;
constexpr std::uint16_t k_apl_ipv6 = 2;
constexpr std::uint8_t k_apl_negation = 0x80;

void append_number(std::string& out, std::uint64_t value) { out += std::to_string(value); }

void append_padded(std::string& out, std::uint64_t value, std::size_t digits) {
  const std::string text = std::to_string(value);
  if (text.size() < digits) out.append(digits - text.size(), '0');
  out += text;
}

// \DDD, the byte in three decimal digits.
void append_decimal_escape(std::string& out, std::uint8_t byte) {
  out += '\\';
  append_padded(out, byte, 3);
}

void append_named(std::string& out, std::span<const named_value> names, std::uint16_t value) {
  for (const named_value& row : names) {
    if (row.value == value) {
      out += row.name;
      return;
    }
  }
  append_number(out, value);
}

// Characters that mean something in a zone file stand for themselves in a name only after a
// backslash; blanks, control bytes and bytes above 126 are written \DDD.
bool special_in_name(std::uint8_t byte) {
  return byte == '"' || byte == '(' || byte == ')' || byte == '.' || byte == ';' || byte == '\\' ||
         byte == '@' || byte == '$';
}

void append_name(std::string& out, const std::vector<std::string>& labels) {
  if (labels.empty()) out += '.';  // the root
  for (const std::string& label : labels) {
    for (const char c : label) {
      const auto byte = static_cast<std::uint8_t>(c);
      if (byte <= k_space || byte >= k_delete) {
        append_decimal_escape(out, byte);
        continue;
      }
      if (special_in_name(byte)) out += '\\';
      out += c;
    }
    out += '.';
  }
}

// A character-string in double quotes: the quote and the backslash escaped, control bytes and
// bytes above 126 written \DDD, blanks as they are.
void append_quoted(std::string& out, byte_span text) {
  out += '"';
  for (const std::uint8_t byte : text) {
    if (byte < k_space || byte >= k_delete) {
      append_decimal_escape(out, byte);
      continue;
    }
    if (byte == '"' || byte == '\\') out += '\\';
    out += static_cast<char>(byte);
  }
  out += '"';
}

void append_hex(std::string& out, byte_span data) {
  for (const std::uint8_t byte : data) {
    out += k_upper_hex[byte >> 4];
    out += k_upper_hex[byte & 0x0F];
  }
}

void append_base64(std::string& out, byte_span data) {
  for (std::size_t i = 0; i < data.size(); i += 3) {
    const std::size_t n = std::min<std::size_t>(3, data.size() - i);
    std::uint32_t group = std::uint32_t{data[i]} << 16;
    if (n > 1) group |= std::uint32_t{data[i + 1]} << 8;
    if (n > 2) group |= data[i + 2];
    out += k_base64_digits[group >> 18 & 0x3F];
    out += k_base64_digits[group >> 12 & 0x3F];
    out += n > 1 ? k_base64_digits[group >> 6 & 0x3F] : '=';
    out += n > 2 ? k_base64_digits[group & 0x3F] : '=';
  }
}

// Without padding, as NSEC3 writes its hashed owner names (RFC 5155 section 3.3).
void append_base32hex(std::string& out, byte_span data) {
  for (std::size_t i = 0; i < data.size(); i += 5) {
    const std::size_t n = std::min<std::size_t>(5, data.size() - i);
    std::uint64_t group = 0;
    for (std::size_t k = 0; k < 5; ++k) group = group << 8 | (k < n ? data[i + k] : 0u);
    const std::size_t digits = (n * 8 + 4) / 5;
    for (std::size_t k = 0; k < digits; ++k) out += k_base32hex_digits[group >> (35 - 5 * k) & 0x1F];
  }
}

void append_ipv4(std::string& out, byte_span address) {
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (i != 0) out += '.';
    append_number(out, address[i]);
  }
}

// The longest run of two or more zero groups (the first of equals) becomes "::"; an address
// of the IPv4-compatible or IPv4-mapped shape ends in dotted form. That is the shortening
// dig's library does, which differs from RFC 5952 only in the compatible shape.
void append_ipv6(std::string& out, byte_span address) {
  std::array<std::uint16_t, 8> groups{};
  for (std::size_t i = 0; i < groups.size(); ++i)
    groups[i] = static_cast<std::uint16_t>(address[2 * i] << 8 | address[2 * i + 1]);
  std::size_t best = groups.size(), best_length = 0;
  for (std::size_t i = 0; i < groups.size();) {
    std::size_t run = 0;
    while (i + run < groups.size() && groups[i + run] == 0) ++run;
    if (run > best_length) {
      best = i;
      best_length = run;
    }
    i += run != 0 ? run : 1;
  }
  if (best_length < 2) best = groups.size();
  for (std::size_t i = 0; i < groups.size(); ++i) {
    if (best != groups.size() && i >= best && i < best + best_length) {
      if (i == best) out += ':';
      continue;
    }
    if (i != 0) out += ':';
    if (i == 6 && best == 0 && (best_length == 6 || (best_length == 5 && groups[5] == 0xFFFF))) {
      append_ipv4(out, address.subspan(12));
      return;
    }
    const std::uint16_t group = groups[i];
    bool leading = true;
    for (int shift = 12; shift >= 0; shift -= 4) {
      const unsigned digit = group >> shift & 0xF;
      if (leading && digit == 0 && shift != 0) continue;
      leading = false;
      out += k_lower_hex[digit];
    }
  }
  if (best != groups.size() && best + best_length == groups.size()) out += ':';
}

void append_eui(std::string& out, byte_span address) {
  for (std::size_t i = 0; i < address.size(); ++i) {
    if (i != 0) out += '-';
    out += k_lower_hex[address[i] >> 4];
    out += k_lower_hex[address[i] & 0x0F];
  }
}

// A 32-bit time of RRSIG data (RFC 4034 section 3.1.5) is the instant within 2^31 seconds of
// now with those low 32 bits. "now" is the record's time of receipt, 32-bit like the field.
void append_time(std::string& out, std::uint32_t value, std::uint64_t received_at) {
  const std::uint64_t unix_seconds =
      received_at > k_unix_epoch_in_ticks ? (received_at - k_unix_epoch_in_ticks) / k_ticks_per_second : 0;
  const auto now = static_cast<std::uint32_t>(unix_seconds);
  const std::int64_t when = static_cast<std::int32_t>(value - now) > 0
                                ? std::int64_t{now} + std::uint32_t(value - now)
                                : std::int64_t{now} - std::uint32_t(now - value);
  // From 1901 to 2174: always after 1601, where time values start.
  const auto ticks = static_cast<std::uint64_t>(when * static_cast<std::int64_t>(k_ticks_per_second) +
                                                static_cast<std::int64_t>(k_unix_epoch_in_ticks));
  const calendar_fields at = to_calendar(ticks);
  append_padded(out, static_cast<std::uint64_t>(at.year), 4);
  for (const int field : {at.month, at.day, at.hour, at.minute, at.second})
    append_padded(out, static_cast<std::uint64_t>(field), 2);
}

// Degrees, minutes and seconds with thousandths, then the hemisphere.
bool append_angle(std::string& out, std::uint32_t raw, std::uint32_t limit, char positive, char negative) {
  const bool north_or_east = raw >= k_loc_equator;
  std::uint32_t value = north_or_east ? raw - k_loc_equator : k_loc_equator - raw;
  if (value > limit) return false;
  const std::uint32_t thousandths = value % 1000;
  value /= 1000;
  append_number(out, value / 3600);
  out += ' ';
  append_number(out, value / 60 % 60);
  out += ' ';
  append_number(out, value % 60);
  out += '.';
  append_padded(out, thousandths, 3);
  out += ' ';
  out += north_or_east ? positive : negative;
  return true;
}

// Centimetres as metres with two decimals.
void append_metres(std::string& out, std::uint64_t centimetres) {
  append_number(out, centimetres / 100);
  out += '.';
  append_padded(out, centimetres % 100, 2);
  out += 'm';
}

// A size or precision: a mantissa and a power of ten of centimetres, each digit 0 to 9;
// whole metres are written without decimals.
bool append_precision(std::string& out, std::uint8_t raw) {
  constexpr std::uint64_t k_powers[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};
  const unsigned mantissa = raw >> 4, exponent = raw & 0x0F;
  if (mantissa > 9 || exponent > 9) return false;
  if (exponent >= 2) {
    append_number(out, mantissa * k_powers[exponent - 2]);
    out += 'm';
  } else {
    append_metres(out, mantissa * k_powers[exponent]);
  }
  return true;
}

bool append_loc(std::string& out, byte_reader& in) {
  if (in.remaining() != k_loc_size || in.u8() != 0) return false;  // version 0 is the only one
  const std::uint8_t size = in.u8(), horizontal = in.u8(), vertical = in.u8();
  const std::uint32_t latitude = in.u32(), longitude = in.u32(), altitude = in.u32();
  if (!append_angle(out, latitude, k_loc_max_latitude, 'N', 'S')) return false;
  out += ' ';
  if (!append_angle(out, longitude, k_loc_max_longitude, 'E', 'W')) return false;
  out += ' ';
  if (altitude < k_loc_altitude_zero) out += '-';
  append_metres(out, altitude < k_loc_altitude_zero ? k_loc_altitude_zero - altitude : altitude - k_loc_altitude_zero);
  for (const std::uint8_t precision : {size, horizontal, vertical}) {
    out += ' ';
    if (!append_precision(out, precision)) return false;
  }
  return true;
}

// Windows in rising order, each of 1 to 32 bytes whose last byte names a type.
bool append_types(std::string& out, byte_reader& in, bool may_be_empty) {
  if (in.remaining() == 0) return may_be_empty;
  int previous_window = -1;
  while (in.remaining() != 0) {
    const std::uint8_t window = in.u8(), length = in.u8();
    if (window <= previous_window || length == 0 || length > k_max_window_bytes || length > in.remaining())
      return false;
    previous_window = window;
    for (unsigned i = 0; i < length; ++i) {
      const std::uint8_t bits = in.u8();
      if (i + 1 == length && bits == 0) return false;
      for (unsigned bit = 0; bit < 8; ++bit) {
        if ((bits & (0x80 >> bit)) == 0) continue;
        if (!out.empty()) out += ' ';
        out += usual_type_name(static_cast<std::uint16_t>(window << 8 | i << 3 | bit));
      }
    }
  }
  return !in.overran();
}

// WKS (RFC 1035 section 3.4.2): the set bits as port numbers, bit 0 of the first byte port 0.
// dig refuses a bitmap whose last byte is zero.
bool append_ports(std::string& out, byte_reader& in) {
  const std::size_t size = in.remaining();
  if (size > k_max_port_bytes) return false;
  for (std::size_t i = 0; i < size; ++i) {
    const std::uint8_t bits = in.u8();
    if (i + 1 == size && bits == 0) return false;
    for (unsigned bit = 0; bit < 8; ++bit) {
      if ((bits & (0x80 >> bit)) == 0) continue;
      if (!out.empty()) out += ' ';
      append_number(out, i * 8 + bit);
    }
  }
  return true;
}

// APL items as [!]family:address/prefix. The wire leaves out an address's trailing zero bytes;
// dig refuses one that keeps a zero byte last, or a prefix or address too long for its family,
// and writes a record with another family in the generic form.
bool append_prefixes(std::string& out, byte_reader& in) {
  while (in.remaining() != 0) {
    const std::uint16_t family = in.u16();
    const std::uint8_t prefix = in.u8(), length_byte = in.u8();
    const std::size_t length = length_byte & ~k_apl_negation;
    if (in.overran() || length > in.remaining() || (family != k_apl_ipv4 && family != k_apl_ipv6)) return false;
    const std::size_t width = family == k_apl_ipv4 ? 4 : 16;
    if (prefix > width * 8 || length > width) return false;
    std::array<std::uint8_t, 16> address{};
    for (std::size_t i = 0; i < length; ++i) address[i] = in.u8();
    if (length != 0 && address[length - 1] == 0) return false;
    if (!out.empty()) out += ' ';
    if ((length_byte & k_apl_negation) != 0) out += '!';
    append_number(out, family);
    out += ':';
    if (family == k_apl_ipv4)
      append_ipv4(out, byte_span(address).first(4));
    else
      append_ipv6(out, address);
    out += '/';
    append_number(out, prefix);
  }
  return true;
}

void append_svc_key(std::string& out, std::uint16_t key) {
  if (key < std::size(k_svc_keys)) {
    out += k_svc_keys[key];
  } else {
    out += "key";
    append_number(out, key);
  }
}

// One ALPN identifier inside the quoted list: a comma inside an identifier is escaped for the
// list (\,) and that backslash again for the quotes, so a comma reads \\, and a backslash \\\\.
void append_alpn_id(std::string& out, byte_span id) {
  for (const std::uint8_t byte : id) {
    if (byte <= k_space || byte >= k_delete) {
      append_decimal_escape(out, byte);
    } else if (byte == ',') {
      out += "\\\\,";
    } else if (byte == '\\') {
      out += "\\\\\\\\";
    } else {
      if (byte == '"') out += '\\';
      out += static_cast<char>(byte);
    }
  }
}

bool append_svc_value(std::string& out, std::uint16_t key, byte_span value) {
  byte_reader in(value);
  switch (key) {
    case k_svc_mandatory:
      if (value.size() % 2 != 0) return false;
      while (in.remaining() != 0) {
        if (in.offset() != 0) out += ',';
        append_svc_key(out, in.u16());
      }
      return true;
    case k_svc_alpn:
      out += '"';
      while (in.remaining() != 0) {
        const std::uint8_t length = in.u8();
        if (length == 0 || length > in.remaining()) return false;
        if (in.offset() != 1) out += ',';
        append_alpn_id(out, value.subspan(in.offset(), length));
        in.seek(in.offset() + length);
      }
      out += '"';
      return true;
    case k_svc_no_default_alpn:
      return false;  // has no value
    case k_svc_port:
      if (value.size() != 2) return false;
      append_number(out, in.u16());
      return true;
    case k_svc_ipv4hint:
    case k_svc_ipv6hint: {
      const std::size_t width = key == k_svc_ipv4hint ? 4 : 16;
      if (value.size() % width != 0) return false;
      for (std::size_t at = 0; at < value.size(); at += width) {
        if (at != 0) out += ',';
        if (width == 4)
          append_ipv4(out, value.subspan(at, width));
        else
          append_ipv6(out, value.subspan(at, width));
      }
      return true;
    }
    case k_svc_ech:
      append_base64(out, value);
      return true;
    default:
      append_quoted(out, value);
      return true;
  }
}

// Keys in strictly rising order (RFC 9460 section 2.2), each with its length and value.
bool append_svc_params(std::string& out, byte_reader& in) {
  int previous_key = -1;
  while (in.remaining() != 0) {
    const std::uint16_t key = in.u16(), length = in.u16();
    if (in.overran() || key <= previous_key || length > in.remaining()) return false;
    previous_key = key;
    std::vector<std::uint8_t> value;
    in.append_to(value, length);
    if (!out.empty()) out += ' ';
    append_svc_key(out, key);
    if (length == 0) {
      if (key != k_svc_no_default_alpn && key != k_svc_ech && key < std::size(k_svc_keys)) return false;
      continue;
    }
    out += '=';
    if (!append_svc_value(out, key, value)) return false;
  }
  return true;
}

// Reads one record's data field by field: a byte reader over the message that ends where the
// data ends, so no field can read past it, and names decoded from the whole message.
class field_reader {
 public:
  explicit field_reader(const DNS_RES_RECORD& record)
      : m_record(record),
        m_in(std::span<const std::uint8_t>(record.packet).first(record.rdata_offset + record.rdlength)) {
    m_in.seek(record.rdata_offset);
  }

  // Appends the text of every field, one blank between fields that have text; false when the
  // data does not read as the layout or has bytes left after it.
  bool read(const rdata_layout& layout, std::string& out) {
    std::array<std::uint32_t, rdata_layout::k_max_fields> numbers{};
    for (std::size_t i = 0; i < layout.count; ++i) {
      std::string text;
      std::uint32_t number = 0;
      const std::uint32_t earlier = i >= 2 ? numbers[i - 2] : 0;
      if (!read_field(layout.fields[i], earlier, text, number) || m_in.overran()) return false;
      numbers[i] = number;
      if (text.empty()) continue;
      if (!out.empty()) out += ' ';
      out += text;
    }
    return m_in.remaining() == 0;
  }

 private:
  std::vector<std::uint8_t> take(std::size_t n) {
    std::vector<std::uint8_t> bytes;
    m_in.append_to(bytes, std::min(n, m_in.remaining()));
    return bytes;
  }
  std::vector<std::uint8_t> rest() { return take(m_in.remaining()); }

  // A length byte and that many bytes; nullopt when they do not fit.
  std::optional<std::vector<std::uint8_t>> counted() {
    const std::uint8_t length = m_in.u8();
    if (m_in.overran() || length > m_in.remaining()) return std::nullopt;
    return take(length);
  }

  bool name(std::string& out) {
    std::vector<std::string> labels;
    if (m_in.offset() > 0xFFFF) return false;  // message offsets are 16-bit
    const unsigned size = decode_name_labels(m_record.packet, static_cast<std::uint16_t>(m_in.offset()), labels);
    if (size == 0 || size > m_in.remaining()) return false;
    m_in.seek(m_in.offset() + size);
    append_name(out, labels);
    return true;
  }

  bool read_field(rdata_field kind, std::uint32_t earlier, std::string& out, std::uint32_t& number) {
    switch (kind) {
      case rdata_field::name:
        return name(out);
      case rdata_field::u8:
        number = m_in.u8();
        append_number(out, number);
        return true;
      case rdata_field::u16:
        number = m_in.u16();
        append_number(out, number);
        return true;
      case rdata_field::u32:
        number = m_in.u32();
        append_number(out, number);
        return true;
      case rdata_field::u48: {
        const std::uint64_t high = m_in.u16();
        append_number(out, high << 32 | m_in.u32());
        return true;
      }
      case rdata_field::ipv4:
        if (m_in.remaining() < 4) return false;
        append_ipv4(out, take(4));
        return true;
      case rdata_field::ipv6:
        if (m_in.remaining() < 16) return false;
        append_ipv6(out, take(16));
        return true;
      case rdata_field::text: {
        const auto text = counted();
        if (text) append_quoted(out, *text);
        return text.has_value();
      }
      case rdata_field::texts:
        if (m_in.remaining() == 0) return false;
        while (m_in.remaining() != 0) {
          const auto text = counted();
          if (!text) return false;
          if (!out.empty()) out += ' ';
          append_quoted(out, *text);
        }
        return true;
      case rdata_field::text_rest:
        append_quoted(out, rest());
        return true;
      case rdata_field::tag: {
        const auto tag = counted();
        if (!tag || tag->empty()) return false;
        for (const std::uint8_t byte : *tag) {
          const bool alphanumeric = (byte >= '0' && byte <= '9') || (byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z');
          if (!alphanumeric) return false;
          out += static_cast<char>(byte);
        }
        return true;
      }
      case rdata_field::base64:
        if (m_in.remaining() == 0) return false;
        append_base64(out, rest());
        return true;
      case rdata_field::hex:
        if (m_in.remaining() == 0) return false;
        append_hex(out, rest());
        return true;
      case rdata_field::hex_or_empty:
        append_hex(out, rest());
        return true;
      case rdata_field::salt: {
        const auto salt = counted();
        if (!salt) return false;
        if (salt->empty()) out += '-';
        append_hex(out, *salt);
        return true;
      }
      case rdata_field::hash: {
        const auto hash = counted();
        if (!hash || hash->empty()) return false;
        append_base32hex(out, *hash);
        return true;
      }
      case rdata_field::type:
        out += usual_type_name(m_in.u16());
        return true;
      case rdata_field::types:
      case rdata_field::types_or_empty:
        return append_types(out, m_in, kind == rdata_field::types_or_empty);
      case rdata_field::time:
        append_time(out, m_in.u32(), m_record.timestamp);
        return true;
      case rdata_field::cert_type:
        append_named(out, k_cert_types, m_in.u16());
        return true;
      case rdata_field::algorithm:
        append_named(out, k_algorithms, m_in.u8());
        return true;
      case rdata_field::gateway:
        return gateway(earlier, out);
      case rdata_field::svc_params:
        return append_svc_params(out, m_in);
      case rdata_field::loc:
        return append_loc(out, m_in);
      case rdata_field::eui48:
      case rdata_field::eui64: {
        const std::size_t size = kind == rdata_field::eui48 ? 6 : 8;
        if (m_in.remaining() < size) return false;
        append_eui(out, take(size));
        return true;
      }
      case rdata_field::ports:
        return append_ports(out, m_in);
      case rdata_field::prefixes:
        return append_prefixes(out, m_in);
      case rdata_field::hip:
        return hip(out);
      case rdata_field::key_error:
        append_named(out, k_key_errors, m_in.u16());
        return true;
      case rdata_field::sized_base64:
      case rdata_field::sized_base64_blank: {
        const std::uint16_t size = m_in.u16();
        if (m_in.overran() || size > m_in.remaining()) return false;
        append_number(out, size);
        if (size != 0 || kind == rdata_field::sized_base64_blank) out += ' ';
        append_base64(out, take(size));
        return true;
      }
    }
    return false;
  }

  // HIP: the HIT's and the key's lengths lead on the wire and are not written; then the
  // algorithm, the HIT in hex, the key in base64 and the rendezvous servers. dig refuses an
  // empty HIT or key.
  bool hip(std::string& out) {
    const std::uint8_t hit_length = m_in.u8(), algorithm = m_in.u8();
    const std::uint16_t key_length = m_in.u16();
    if (m_in.overran() || hit_length == 0 || key_length == 0 || hit_length + std::size_t{key_length} > m_in.remaining())
      return false;
    append_number(out, algorithm);
    out += ' ';
    append_hex(out, take(hit_length));
    out += ' ';
    append_base64(out, take(key_length));
    while (m_in.remaining() != 0) {
      out += ' ';
      if (!name(out)) return false;
    }
    return true;
  }

  // IPSECKEY (RFC 4025 section 2.3): none, an IPv4 or IPv6 address, or a name, by its type.
  bool gateway(std::uint32_t gateway_type, std::string& out) {
    switch (gateway_type) {
      case 0:
        out += '.';
        return true;
      case 1:
        return read_field(rdata_field::ipv4, 0, out, gateway_type);
      case 2:
        return read_field(rdata_field::ipv6, 0, out, gateway_type);
      case 3:
        return name(out);
      default:
        return false;
    }
  }

  const DNS_RES_RECORD& m_record;
  byte_reader m_in;
};

// RFC 3597 section 5: "\#", the length, and the data in hex (none for no data).
std::string generic_form(const DNS_RES_RECORD& record) {
  std::string out = "\\# ";
  append_number(out, record.rdata.size());
  if (!record.rdata.empty()) {
    out += ' ';
    append_hex(out, record.rdata);
  }
  return out;
}

bool is_question(const DNS_RES_RECORD& record) { return record.rdata_offset == 0; }

}  // namespace

std::optional<std::string> record_presentation(const DNS_RES_RECORD& record) {
  if (is_question(record)) return std::nullopt;
  const record_type_info* row = find_record_type(record.type);
  // The data offset and length come from the parser, which keeps them inside the message; a
  // record made otherwise gets the generic form of its own bytes.
  const bool inside = record.rdata_offset + std::size_t{record.rdlength} <= record.packet.size() &&
                      record.rdata.size() == record.rdlength;
  if (row != nullptr && row->layout.count != 0 && inside) {
    std::string text;
    if (field_reader(record).read(row->layout, text)) return text;
  }
  return generic_form(record);
}

bool holds_character_strings(std::uint16_t type) {
  const record_type_info* row = find_record_type(type);
  return row != nullptr && row->layout.count == 1 && row->layout.fields[0] == rdata_field::texts;
}

std::optional<std::vector<std::string>> record_character_strings(const DNS_RES_RECORD& record) {
  if (is_question(record) || !holds_character_strings(record.type) || record.rdata.empty()) return std::nullopt;
  std::vector<std::string> strings;
  byte_reader in(record.rdata);
  while (in.remaining() != 0) {
    const std::uint8_t length = in.u8();
    if (length > in.remaining()) return std::nullopt;
    in.append_to(strings.emplace_back(), length);
  }
  return strings;
}
