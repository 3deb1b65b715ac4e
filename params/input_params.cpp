#include "params/input_params.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>

#include "dns/message_header.h"
#include "dns/query_builder.h"
#include "dns/record_types.h"
#include "params/root_hints.h"

namespace {

struct pipe_option {
  std::string_view name;
  std::int32_t type;
  bool ip6 = false;  // the name is an IPv6 address, reversed under ip6.arpa
};

// Checked in this order; with several present the last one found sets the type.
constexpr pipe_option k_pipe_options[] = {
    {"-url_pipe", 1}, {"-ip_pipe", 12}, {"-mx_pipe", 15}, {"-ns_pipe", 2},
    {"-cname_pipe", 5}, {"-txt_pipe", 16}, {"-ip6_pipe", 12, true},
};

struct single_option {
  std::string_view name;
  std::int32_t type;
  std::string input_params::*slot;
  bool reports_conflict;  // -url is checked first, so a conflict found there has no message
  bool ip6 = false;
};

constexpr single_option k_single_options[] = {
    {"-url", 1, &input_params::url, false},  {"-ip", 12, &input_params::ip, true},
    {"-mx", 15, &input_params::mx, true},    {"-txt", 16, &input_params::txt, true},
    {"-ns", 2, &input_params::ns, true},     {"-cname", 5, &input_params::ns, true},
    {"-ip6", 12, &input_params::ip6, true, true},
};

void take_number(arg_list& args, std::string_view name, std::int32_t& field) {
  if (const auto value = take_value(args, name)) read_number(*value, field);
}

// Unlike the older numbers, these stop the run when they are not one number in range: quietly
// asking port 53 for "-port 5354abc", or waiting 1 ms for "-timeout_ms 1.5", would not be what
// the user meant.
struct bounded_option {
  std::string_view name;
  std::string_view word;  // in the message "invalid WORD: VALUE"
  std::int64_t low;
  std::int64_t high;
};

constexpr bounded_option k_port{"-port", "port", 1, 65535};
constexpr bounded_option k_timeout_ms{"-timeout_ms", "timeout_ms", 0, 86400000};  // a day
constexpr bounded_option k_qps{"-qps", "qps", 1, 10000000};
constexpr bounded_option k_inflight{"-inflight", "inflight", 1, 1000000};
constexpr bounded_option k_hold_mb{"-hold_mb", "hold_mb", 1, 65536};
constexpr bounded_option k_skip_lines{"-skip_lines", "skip_lines", 0, INT64_MAX};
// RFC 6891 section 6.2.3: a size below 512 is read as 512, so it is no use asking for one.
constexpr bounded_option k_edns{"-edns", "edns", 512, 65535};
constexpr bounded_option k_cache_mb{"-cache_mb", "cache_mb", 1, 65536};
constexpr bounded_option k_name_timeout_ms{"-name_timeout_ms", "name_timeout_ms", 1, 86400000};
constexpr bounded_option k_resolver_qps{"-resolver_qps", "resolver_qps", 1, 10000000};
constexpr std::int32_t k_dnssec_edns = 1232;  // what -dnssec offers alone: fits one unfragmented datagram

template <typename Number>
bool take_bounded(arg_list& args, const bounded_option& option, Number& field) {
  const auto value = take_value(args, option.name);
  if (!value) return true;
  std::int64_t number = 0;
  if (!read_strict_number(*value, number) || number < option.low || number > option.high) {
    std::cerr << "invalid " << option.word << ": " << *value << '\n';
    return false;
  }
  field = static_cast<Number>(number);
  return true;
}

// A mnemonic first, since some read as numbers ("X25" is hexadecimal 25 to the number reader);
// then the whole text as one number. Anything else stops the run, like a bad port: asking
// another type than the user meant would give answers to the wrong question.
bool take_asked_type(arg_list& args, std::optional<std::uint16_t>& type) {
  const auto value = take_value(args, "-qtype");
  if (!value) return true;
  if (const auto code = type_code(*value)) {
    type = code;
    return true;
  }
  std::int64_t number = -1;
  if (read_strict_number(*value, number) && number >= 0 && number <= 65535) {
    type = static_cast<std::uint16_t>(number);
    return true;
  }
  std::cerr << "invalid query type: " << *value << '\n';
  return false;
}

// -qtypes: types as -qtype takes them, joined by commas; -qtype beside it is an error.
bool take_asked_types(arg_list& args, input_params& config) {
  const auto value = take_value(args, "-qtypes");
  if (!value) return true;
  if (config.asked_type) {
    std::cerr << "use -qtype or -qtypes, not both\n";
    return false;
  }
  std::string_view rest = *value;
  while (true) {
    const auto comma = rest.find(',');
    const std::string item(rest.substr(0, comma));
    std::int64_t number = -1;
    if (const auto code = type_code(item)) {
      config.asked_types.push_back(*code);
    } else if (read_strict_number(item, number) && number >= 0 && number <= 65535) {
      config.asked_types.push_back(static_cast<std::uint16_t>(number));
    } else {
      std::cerr << "invalid qtypes: " << *value << '\n';
      return false;
    }
    if (comma == std::string_view::npos) return true;
    rest.remove_prefix(comma + 1);
  }
}

// -resolvers: the file read and checked now, so that a bad list stops the run before anything
// is asked. False with the message written.
bool read_resolvers(const std::string& path, input_params& config) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (file) text << file.rdbuf();
  if (!file || file.bad()) {
    std::cerr << "resolvers file " << path << ": " << std::strerror(errno != 0 ? errno : EIO) << '\n';
    return false;
  }
  const resolver_list list = read_resolver_list(text.str());
  if (list.bad_line != 0) {
    std::cerr << "resolvers file " << path << ", line " << list.bad_line << ": not an address: " << list.bad_text
              << '\n';
    return false;
  }
  if (list.entries.empty()) {
    std::cerr << "resolvers file " << path << ": no resolver in it\n";
    return false;
  }
  config.resolvers_file = path;
  config.resolvers = list.entries;
  return true;
}

// -roots: the file read and checked now, like -resolvers. False with the message written.
bool read_roots(const std::string& path, input_params& config) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream text;
  if (file) text << file.rdbuf();
  if (!file || file.bad()) {
    std::cerr << "roots file " << path << ": " << std::strerror(errno != 0 ? errno : EIO) << '\n';
    return false;
  }
  const root_hints hints = read_root_hints(text.str());
  if (hints.bad_line != 0) {
    std::cerr << "roots file " << path << ", line " << hints.bad_line << ": neither an address nor a root hint\n";
    return false;
  }
  if (hints.addresses.empty()) {
    std::cerr << "roots file " << path << ": no root server in it\n";
    return false;
  }
  config.roots_file = path;
  config.roots = hints.addresses;
  return true;
}

// -iterative asks the root servers (-roots, or the built-in ones) and no other server. False
// with the message written.
bool take_iterative(arg_list& args, input_params& config) {
  const auto roots = take_value(args, "-roots");
  for (const char* other : {"-server", "-server6", "-resolvers"}) {
    if (take_value(args, other)) {
      std::cerr << "use -iterative without -server, -server6 or -resolvers\n";
      return false;
    }
  }
  errno = 0;
  if (roots) return read_roots(*roots, config);
  config.roots = builtin_root_hints().addresses;
  return true;
}

// -server, -server6 or -resolvers, exactly one of them (or -iterative, and none). False with
// the message written.
bool take_server(arg_list& args, input_params& config) {
  if (take_switch(args, "-iterative")) config.iterative = 1;
  if (config.iterative != 0) return take_iterative(args, config);
  auto address6 = take_value(args, "-server6");
  auto address = take_value(args, "-server");
  const auto resolvers = take_value(args, "-resolvers");
  if (resolvers) {
    if (address || address6) {
      std::cerr << "use one of -server, -server6 and -resolvers\n";
      return false;
    }
    errno = 0;
    return read_resolvers(*resolvers, config);
  }
  if (address6) {
    if (address) {
      std::cerr << "use -server or -server6, not both\n";
      return false;
    }
    in6_addr parsed{};
    if (::inet_pton(AF_INET6, address6->c_str(), &parsed) != 1) {
      std::cerr << "invalid server6: " << *address6 << '\n';
      return false;
    }
    config.server = std::move(*address6);
    config.server6 = 1;
    return true;
  }
  if (!address) {
    std::cerr << "error: need to specify a DNS server to query using the format: -server "
                 "<ipv4 addr>\n";
    return false;
  }
  config.server = std::move(*address);
  return true;
}

// -retry_rcodes: response codes by name or number (0 to 4095, with EDNS's upper bits), joined
// by commas, or "none".
bool take_retry_rcodes(arg_list& args, input_params& config) {
  const auto value = take_value(args, "-retry_rcodes");
  if (!value) {
    if (config.resolvers.size() > 1) config.retry_rcodes = {k_rcode_servfail, k_rcode_refused};
    return true;
  }
  if (to_lower_ascii(*value) == "none") return true;
  std::string_view rest = *value;
  while (true) {
    const auto comma = rest.find(',');
    const std::string_view item = rest.substr(0, comma);
    std::int64_t number = -1;
    if (const auto code = rcode_code(item)) {
      config.retry_rcodes.push_back(*code);
    } else if (read_strict_number(item, number) && number >= 0 && number <= 4095) {
      config.retry_rcodes.push_back(static_cast<std::uint16_t>(number));
    } else {
      std::cerr << "invalid retry_rcodes: " << *value << '\n';
      return false;
    }
    if (comma == std::string_view::npos) return true;
    rest.remove_prefix(comma + 1);
  }
}

// Every resolver gets its port; the same address and port given twice, in whatever text form
// (2001:DB8::1 and 2001:db8::1), counts once.
void settle_resolvers(input_params& config) {
  std::vector<resolver_entry> kept;
  std::vector<std::string> keys;
  for (resolver_entry entry : config.resolvers) {
    if (!entry.port) entry.port = config.port;
    std::uint8_t bytes[sizeof(in6_addr)] = {};
    ::inet_pton(entry.ipv6 ? AF_INET6 : AF_INET, entry.address.c_str(), bytes);
    std::string key(reinterpret_cast<const char*>(bytes), entry.ipv6 ? 16 : 4);
    key += std::to_string(*entry.port);
    if (std::find(keys.begin(), keys.end(), key) != keys.end()) continue;
    keys.push_back(key);
    kept.push_back(entry);
  }
  config.resolvers = std::move(kept);
}

// -check_zone: any name a query can carry; "." is the root.
bool take_check_zone(arg_list& args, input_params& config) {
  const auto value = take_value(args, "-check_zone");
  if (!value) return true;
  if (*value != "." && !encode_name("x." + *value)) {
    std::cerr << "invalid check_zone: " << *value << '\n';
    return false;
  }
  config.check_zone = *value;
  return true;
}

// The switches that shape an iterative run; each alone is an error, as it would change nothing.
bool take_iterative_options(arg_list& args, input_params& config) {
  const std::int32_t cache_mb = config.cache_mb, name_timeout_ms = config.name_timeout_ms;
  if (take_switch(args, "-trace")) config.trace = 1;
  if (!take_bounded(args, k_cache_mb, config.cache_mb) || !take_bounded(args, k_name_timeout_ms, config.name_timeout_ms))
    return false;
  const bool given = config.trace != 0 || cache_mb != config.cache_mb || name_timeout_ms != config.name_timeout_ms ||
                     take_value(args, "-roots");
  if (config.iterative == 0 && given) {
    std::cerr << "-roots, -trace, -cache_mb and -name_timeout_ms need -iterative\n";
    return false;
  }
  return true;
}

}  // namespace

input_params::input_params() {
  xml = 0;
  verbose = 0;
  use_stdin = 0;
}

int input_params::parse(arg_list& args, std::ostream& header, bool& help) {
  help = false;
  const parse_result generic = parse_generic(args, header);
  if (generic == parse_result::help) {
    help = true;
    return 0;
  }
  if (generic == parse_result::failed) return 0;
  if (generic == parse_result::version) {
    show_version = 1;
    return 1;
  }

  for (const pipe_option& option : k_pipe_options) {
    if (!take_switch(args, option.name)) continue;
    if (!use_enumdir) use_stdin = 1;
    query_type = option.type;
    ip6_lookup = option.ip6;
  }

  for (const single_option& option : k_single_options) {
    auto value = take_value(args, option.name);
    if (!value) continue;
    this->*option.slot = *value;  // stored before the conflict test, as -ns/-cname show
    if (!query_name.empty()) {
      if (option.reports_conflict) std::cerr << "invalid combination of commands\n";
      return 0;
    }
    query_name = std::move(*value);
    query_type = option.type;
    ip6_lookup = option.ip6;
  }

  if (!take_server(args, *this)) return 0;

  if (take_switch(args, "-ipv6")) ipv6 = 1;
  take_number(args, "-timeout", timeout);
  take_number(args, "-retry", retry);
  take_number(args, "-delay", delay);
  if (take_switch(args, "-progress")) progress = 1;
  if (take_switch(args, "-quiet")) quiet = 1;
  if (take_switch(args, "-stats")) stats = 1;
  if (take_switch(args, "-strict_exit")) strict_exit = 1;
  if (take_switch(args, "-unordered")) unordered = 1;
  if (take_switch(args, "-tcp")) tcp = 1;
  if (take_switch(args, "-tcp_only")) tcp_only = 1;
  if (take_switch(args, "-dnssec")) dnssec = 1;
  if (take_switch(args, "-clean_input")) clean_input = 1;
  if (take_switch(args, "-cidr")) cidr = 1;
  const bool valid = take_bounded(args, k_port, port) && take_bounded(args, k_timeout_ms, timeout_ms) &&
                     take_bounded(args, k_qps, qps) && take_bounded(args, k_inflight, inflight) &&
                     take_bounded(args, k_hold_mb, hold_mb) && take_bounded(args, k_skip_lines, skip_lines) &&
                     take_asked_type(args, asked_type) && take_asked_types(args, *this) &&
                     take_bounded(args, k_edns, edns) &&
                     take_bounded(args, k_resolver_qps, resolver_qps) && take_retry_rcodes(args, *this) &&
                     take_check_zone(args, *this);
  if (!valid || !take_iterative_options(args, *this)) return 0;
  if (auto value = take_value(args, "-stats_json")) stats_json = std::move(*value);
  settle_resolvers(*this);
  if (dnssec && edns == 0) edns = k_dnssec_edns;
  return 1;
}
