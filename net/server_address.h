// Where the queries go: the server's address and port as the socket calls take them, with the
// address text as the user gave it, which every row shows. One value serves UDP and TCP alike.
#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <string>

#include "params/input_params.h"

class server_address {
 public:
  // -server: the text through inet_addr, as zib has always done it. The result is not
  // checked: no name resolution is tried, and a text that is not dotted IPv4 goes to whatever
  // address the conversion gives (255.255.255.255 for most), where it fails or times out.
  static server_address ipv4(std::string text, std::uint16_t port);
  // -server6: an IPv6 literal as inet_pton reads it ("::1", "2001:db8::53"); nullopt for any
  // other text.
  static std::optional<server_address> ipv6(std::string text, std::uint16_t port);

  int family() const { return m_address.ss_family; }
  const sockaddr* data() const { return reinterpret_cast<const sockaddr*>(&m_address); }
  socklen_t size() const { return m_size; }
  const std::string& text() const { return m_text; }

 private:
  sockaddr_storage m_address{};
  socklen_t m_size = 0;
  std::string m_text;
};

// The server a run asks: -server6 when given, else -server; with -port.
server_address server_of(const input_params& config);
