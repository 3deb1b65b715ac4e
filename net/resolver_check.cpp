#include "net/resolver_check.h"

#include <algorithm>
#include <random>

#include "dns/byte_reader.h"
#include "dns/edns.h"
#include "dns/message_header.h"
#include "dns/name_codec.h"

namespace {

constexpr std::size_t k_question_offset = 12;
// "zib" and twelve random letters and digits: 36^12 names, none of which a zone holds.
constexpr std::string_view k_label_head = "zib";
constexpr std::size_t k_random_letters = 12;

}  // namespace

check_answer classify_check_reply(const dns_packet_transaction& transaction, bool answered) {
  if (transaction.received_length == 0) return check_answer::none;
  const auto header = read_message_header(transaction.received);
  if (!answered || !header) return check_answer::failed;
  switch (full_rcode(header->rcode, find_opt_record(transaction.additional))) {
    case k_rcode_nxdomain: return check_answer::no_such_name;
    case k_rcode_refused: return check_answer::refused;
    case k_rcode_noerror: return transaction.answers.empty() ? check_answer::no_data : check_answer::data;
    default: return check_answer::failed;
  }
}

resolver_check::resolver_check(std::size_t servers, std::size_t names)
    : m_names(names), m_answers(servers), m_first_done(servers, false) {}

void resolver_check::begin(std::size_t server) { m_answers[server].clear(); }

void resolver_check::record(std::size_t server, check_answer answer) {
  auto& answers = m_answers[server];
  if (answers.size() >= m_names) return;
  answers.push_back(answer);
  if (answers.size() < m_names || m_first_done[server]) return;
  m_first_done[server] = true;
  if (first_check_over()) m_majority = majority();
}

bool resolver_check::first_check_over() const {
  return std::all_of(m_first_done.begin(), m_first_done.end(), [](bool done) { return done; });
}

resolver_check::stance resolver_check::stance_of(std::size_t server) const {
  const auto& answers = m_answers[server];
  const auto any = [&](check_answer a) { return std::find(answers.begin(), answers.end(), a) != answers.end(); };
  if (any(check_answer::data)) return stance::data;
  if (any(check_answer::no_such_name) || any(check_answer::no_data)) return stance::no_name;
  if (any(check_answer::failed)) return stance::failed;
  if (any(check_answer::refused)) return stance::refused;
  return stance::none;
}

resolver_check::stance resolver_check::majority() const {
  std::size_t no_name = 0, data = 0;
  for (std::size_t server = 0; server < m_answers.size(); ++server) {
    const stance s = stance_of(server);
    no_name += s == stance::no_name;
    data += s == stance::data;
  }
  return no_name > data ? stance::no_name : data > no_name ? stance::data : stance::none;
}

std::optional<aside_reason> resolver_check::verdict(std::size_t server) const {
  if (m_answers[server].size() < m_names) return std::nullopt;
  switch (stance_of(server)) {
    case stance::none: return aside_reason::silent;
    case stance::no_name: return aside_reason::none;
    case stance::refused: return aside_reason::rejecting;
    case stance::data:
      if (!m_majority) return std::nullopt;
      return *m_majority == stance::no_name ? aside_reason::lying : aside_reason::none;
    case stance::failed:
      // SERVFAIL where the others answer fails the names too; where nobody answers, the zone is
      // at fault, not the resolver.
      if (!m_majority) return std::nullopt;
      return *m_majority == stance::none ? aside_reason::none : aside_reason::rejecting;
  }
  return std::nullopt;
}

std::string resolver_check::account(std::size_t server) const {
  static constexpr const char* k_words[] = {"no reply", "NXDOMAIN", "no data", "data", "REFUSED", "failed"};
  std::string text;
  for (const check_answer a : m_answers[server]) {
    if (!text.empty()) text += ", ";
    text += k_words[static_cast<int>(a)];
  }
  std::size_t no_name = 0, data = 0;
  for (std::size_t other = 0; other < m_answers.size(); ++other) {
    no_name += stance_of(other) == stance::no_name;
    data += stance_of(other) == stance::data;
  }
  return "check names got " + (text.empty() ? std::string("nothing") : text) + "; of the pool " +
         std::to_string(no_name) + " said no such name, " + std::to_string(data) + " data";
}

std::vector<std::uint8_t> parent_zone_of(const shared_bytes& query) {
  byte_reader reader(query);
  reader.seek(k_question_offset);
  const std::size_t first = reader.u8();
  if (first == 0 || reader.overran()) return {0};
  reader.seek(k_question_offset + 1 + first);
  std::vector<std::uint8_t> zone;
  // The builder writes plain labels, at most 255 of them before the root.
  for (int labels = 0; labels < 256; ++labels) {
    const std::uint8_t length = reader.u8();
    if (reader.overran()) return {0};
    zone.push_back(length);
    if (length == 0) return zone;
    reader.append_to(zone, length);
  }
  return {0};
}

std::vector<std::uint8_t> check_name(std::span<const std::uint8_t> zone) {
  static std::mt19937_64 random{std::random_device{}()};
  static constexpr char k_letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::vector<std::uint8_t> wire{static_cast<std::uint8_t>(k_label_head.size() + k_random_letters)};
  wire.insert(wire.end(), k_label_head.begin(), k_label_head.end());
  for (std::size_t i = 0; i < k_random_letters; ++i) wire.push_back(static_cast<std::uint8_t>(k_letters[random() % 36]));
  wire.insert(wire.end(), zone.begin(), zone.end());
  return wire;
}
