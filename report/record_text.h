// Record data in its standard text form: the zone-file presentation of RFC 1035 section 5.1
// and of each type's own RFC, as dig +short +nosplit prints it. Read field by field by the
// layout of the type's row (dns/record_types.h); what does not read as its layout is shown in
// the generic form of RFC 3597.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "dns/dns_record.h"

// "10 mail.example.", "\"v=spf1 -all\"", "2001:db8::1", "\# 4 0A000001"... nullopt for a
// question, which has no data (its data offset is 0). Times of RRSIG data are read near the
// record's own time of receipt, as a 32-bit time is only defined within 68 years of now.
std::optional<std::string> record_presentation(const DNS_RES_RECORD& record);

// True for the types whose data is a sequence of character-strings: TXT and SPF.
bool holds_character_strings(std::uint16_t type);

// The character-strings of a TXT or SPF record, as their bytes; nullopt for a question, for
// any other type, and for data that is not a sequence of character-strings.
std::optional<std::vector<std::string>> record_character_strings(const DNS_RES_RECORD& record);
