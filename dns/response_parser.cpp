#include "dns/response_parser.h"

#include "dns/byte_reader.h"

namespace {

// Header fields (RFC 1035 section 4.1.1).
constexpr std::size_t k_flags_offset = 2;
constexpr std::uint8_t k_qr_bit = 0x80;
constexpr std::size_t k_counts_offset = 4;

// Every position in the message is a 16-bit value: sums wrap at 65,536 rather than grow.
std::uint16_t at(std::size_t position) { return static_cast<std::uint16_t>(position); }

constexpr std::size_t k_last_position = 65535;
constexpr std::size_t k_question_fields_size = 4;  // type, class
constexpr std::size_t k_record_fields_size = 10;   // type, class, TTL, data length

// One pass over one message. Holds the views only while parse_response runs.
class message_parser {
 public:
  message_parser(const std::string* server, std::uint64_t received_at, const shared_bytes& message,
                 std::uint16_t id)
      : server_(server), received_at_(received_at), shared_(message), message_(message), reader_(message_),
        id_(id) {}

  // One section, `count` entries. False when an entry fails; the entries before it stay.
  // This is the one rule for short replies: a section starts only while data is left, and it
  // ends, without failing, as soon as the read position reaches the end of the data.
  bool section(std::uint16_t count, std::vector<DNS_RES_RECORD>& out, bool questions) {
    if (count == 0 || !data_left()) return true;
    for (unsigned i = 0; i < count; ++i) {
      if (!(questions ? question(out) : resource_record(out))) return false;
      if (!data_left()) break;
    }
    return true;
  }

  std::uint16_t position() const { return position_; }

 private:
  bool data_left() const { return !past_last_position_ && position_ < message_.size(); }

  // True, and the data ended, when the position after an entry's fixed fields would pass the
  // last 16-bit position. Only a message over 65,525 bytes (over TCP, or a datagram over IPv6)
  // gets there; read on from the wrapped position, the parse would restart in the header and
  // could go round the message once per count, copying its data each time.
  bool fields_pass_last_position(std::size_t fields_at, std::size_t fields_size) {
    past_last_position_ = fields_at + fields_size > k_last_position;
    return past_last_position_;
  }

  bool question(std::vector<DNS_RES_RECORD>& out) {
    DNS_RES_RECORD record;
    const unsigned name_size = decode_name(message_, position_, record.name);
    if (name_size == 0) return false;
    if (fields_pass_last_position(std::size_t{position_} + name_size, k_question_fields_size)) return true;
    // Type and class are not checked against the length: the receive buffer is zero-filled,
    // so a question cut short reads zeros there, which is what the reader's zero-extension gives.
    reader_.seek(at(position_ + name_size));
    record.type = reader_.u16();
    reader_.seek(at(position_ + name_size + 2));
    record.class_ = reader_.u16();
    position_ = at(position_ + name_size + 4);
    stamp(record);
    out.push_back(std::move(record));
    return true;
  }

  bool resource_record(std::vector<DNS_RES_RECORD>& out) {
    DNS_RES_RECORD record;
    const unsigned name_size = decode_name(message_, position_, record.name);
    if (name_size == 0) return false;
    if (fields_pass_last_position(std::size_t{position_} + name_size, k_record_fields_size)) return true;
    const std::uint16_t p = at(position_ + name_size);
    record.type = field16(p);
    record.class_ = field16(at(p + 2));
    reader_.seek(at(p + 4));
    record.ttl = reader_.u32();
    record.rdlength = field16(at(p + 8));
    record.rdata_offset = at(p + 10);
    // Compared at full width: a wrapped end would let the copy below claim bytes that are not
    // there, and every parsed record keeps rdata_offset + rdlength within its packet.
    if (std::size_t{record.rdata_offset} + record.rdlength > message_.size()) return false;
    reader_.seek(record.rdata_offset);
    reader_.append_to(record.rdata, record.rdlength);
    position_ = at(record.rdata_offset + record.rdlength);
    stamp(record);
    out.push_back(std::move(record));
    return true;
  }

  std::uint16_t field16(std::uint16_t position) {
    reader_.seek(position);
    return reader_.u16();
  }

  void stamp(DNS_RES_RECORD& record) const {
    if (server_ != nullptr) record.server = *server_;
    record.timestamp = received_at_;
    record.packet = shared_;
    record.id = id_;
  }

  const std::string* server_;
  std::uint64_t received_at_;
  const shared_bytes& shared_;
  std::span<const std::uint8_t> message_;
  byte_reader reader_;
  std::uint16_t id_;
  std::uint16_t position_ = k_header_size;
  bool past_last_position_ = false;
};

}  // namespace

unsigned parse_response(const std::string* server, std::uint64_t received_at,
                        std::span<const std::uint8_t> message, std::uint16_t& id,
                        std::vector<DNS_RES_RECORD>& questions, std::vector<DNS_RES_RECORD>& answers,
                        std::vector<DNS_RES_RECORD>& authority, std::vector<DNS_RES_RECORD>& additional,
                        bool require_response) {
  return parse_response(server, received_at, shared_bytes(message), id, questions, answers, authority,
                        additional, require_response);
}

unsigned parse_response(const std::string* server, std::uint64_t received_at, const shared_bytes& message,
                        std::uint16_t& id, std::vector<DNS_RES_RECORD>& questions,
                        std::vector<DNS_RES_RECORD>& answers, std::vector<DNS_RES_RECORD>& authority,
                        std::vector<DNS_RES_RECORD>& additional, bool require_response) {
  questions.clear();
  answers.clear();
  authority.clear();
  additional.clear();

  // The header is read zero-extended: a datagram shorter than 12 bytes has zero counts past
  // its end, as it would in the zero-filled receive buffer.
  byte_reader header(message);
  if (require_response && (header.peek(k_flags_offset) & k_qr_bit) == 0) return 0;

  // The ID stays as its two bytes stand, read low byte first, because the query wrote the
  // chosen number that way and replies are matched on the raw bytes.
  const std::uint8_t id_low = header.u8();
  id = static_cast<std::uint16_t>(id_low | header.u8() << 8);
  header.seek(k_counts_offset);
  const std::uint16_t qdcount = header.u16();
  const std::uint16_t ancount = header.u16();
  const std::uint16_t nscount = header.u16();
  const std::uint16_t arcount = header.u16();

  message_parser parser(server, received_at, message, id);
  if (!parser.section(qdcount, questions, true) || !parser.section(ancount, answers, false) ||
      !parser.section(nscount, authority, false) || !parser.section(arcount, additional, false)) {
    return 0;
  }
  return parser.position();
}

bool decode_soa(std::span<const std::uint8_t> message, std::uint32_t offset, SOA_RDATA& out) {
  out.clear();
  const unsigned mname_size = decode_name(message, at(offset), out.name_server);
  if (mname_size == 0) return false;
  const unsigned rname_size = decode_name(message, at(offset + mname_size), out.admin_mailbox);
  if (rname_size == 0) {
    out.clear();
    return false;
  }
  const std::uint16_t p = at(offset + mname_size + rname_size);
  constexpr std::size_t k_soa_numbers_size = 20;  // serial, refresh, retry, expire, minimum
  if (std::size_t{p} + k_soa_numbers_size > message.size()) {
    out.clear();
    return false;
  }
  byte_reader reader(message);
  reader.seek(p);
  out.serial = reader.u32();
  out.refresh = reader.u32();
  out.retry = reader.u32();
  out.expire = reader.u32();
  out.minimum = reader.u32();
  return true;
}
