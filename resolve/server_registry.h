// The servers an iterative run has learned of, numbered as it meets them: the roots first, then
// every name server address a referral or a lookup gives. The number is the server's in the
// exchange engine and the server pool too.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

class server_registry {
 public:
  // The number of an address (IPv4 or IPv6 text, as inet_pton reads it), given a new one when it
  // is new; nullopt for a text that is no address.
  std::optional<std::size_t> number_of(const std::string& address);
  const std::string& address(std::size_t number) const { return m_addresses[number]; }
  std::size_t size() const { return m_addresses.size(); }

 private:
  std::vector<std::string> m_addresses;
  std::unordered_map<std::string, std::size_t> m_numbers;  // by the address's bytes
};
