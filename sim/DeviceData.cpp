#include "sim/DeviceData.h"

#include <array>

#include "fbo/utils/Makers.h"

namespace sim {

namespace {

using namespace vendor::nivora::hardware::fbo::implementation;

using Bytes = std::array<uint8_t, kHealthReportBytes>;

void put(Bytes& bytes, const ReportField& field, uint32_t value) {
    for (size_t i = 0; i < field.width; ++i, value >>= 8) {
        bytes[field.at + (field.big_endian ? field.width - 1 - i : i)] = value & 0xff;
    }
}

std::string padded(std::string_view field, size_t length) {
    std::string text(field);
    text.resize(length, ' ');
    return text;
}

}  // namespace

std::string inquiryData(std::string_view vendor, std::string_view product,
                        std::string_view revision) {
    // A direct-access device that is there for good, SPC-4, response format 2, 31 bytes to follow.
    return std::string("\0\0\6\2\37\0\0\2", 8) + padded(vendor, 8) +
           padded(product, kProductLength) + padded(revision, kRevisionLength);
}

std::string healthReport(const std::string& vendor, uint32_t cycles, uint32_t tbw) {
    Bytes bytes;
    // No byte is zero and no two neighbours are alike, so that a reader in the wrong place shows.
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i % 251 + 1);
    if (const Maker* maker = findMaker(vendor)) {
        const bool has_older_field = maker->cycles_without_tbw.width > 0;
        if (has_older_field) put(bytes, kTbwField, tbw);
        put(bytes, has_older_field && tbw == 0 ? maker->cycles_without_tbw : maker->cycles, cycles);
    }
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 15];
    }
    return text + "\n";
}

}  // namespace sim
