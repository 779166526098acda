#include "sim/DeviceData.h"

#include <array>
#include <cstring>

namespace sim {

namespace {

using Bytes = std::array<uint8_t, 512>;

void putBigEndian(Bytes& bytes, size_t at, size_t width, uint32_t value) {
    for (size_t i = width; i > 0; --i, value >>= 8) bytes[at + i - 1] = value & 0xff;
}

void putLittleEndian(Bytes& bytes, size_t at, size_t width, uint32_t value) {
    for (size_t i = 0; i < width; ++i, value >>= 8) bytes[at + i] = value & 0xff;
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
    return std::string("\0\0\6\2\37\0\0\2", 8) + padded(vendor, 8) + padded(product, 16) +
           padded(revision, 4);
}

std::string bootLunRecord(std::string_view magic, int32_t bootlun, int32_t snapbootlun) {
    std::string record(kRecordLength, '\0');
    // Every byte differs from its neighbours, so that a byte out of place shows.
    for (size_t i = 0; i < record.size(); ++i) record[i] = static_cast<char>(i);
    record.replace(0, magic.size(), magic);
    memcpy(&record[kBootLunOffset], &bootlun, sizeof(bootlun));
    memcpy(&record[kSnapshotBootLunOffset], &snapbootlun, sizeof(snapbootlun));
    return record;
}

std::string healthReport(Maker maker, uint32_t cycles, uint32_t tbw) {
    Bytes bytes;
    // No byte is zero and no two neighbours are alike, so that a reader in the wrong place shows.
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(i % 251 + 1);
    switch (maker) {
        case Maker::kMicron:
        case Maker::kKioxia:
            putBigEndian(bytes, 24, 4, cycles);
            break;
        case Maker::kWdc:
            putLittleEndian(bytes, 8, 4, cycles);
            break;
        case Maker::kSkHynix:
            putLittleEndian(bytes, 144, 4, tbw);
            if (tbw != 0) {
                putLittleEndian(bytes, 8, 2, cycles);
            } else {
                putBigEndian(bytes, 13, 2, cycles);
            }
            break;
        case Maker::kSamsung:
            putBigEndian(bytes, 156, 4, cycles);
            break;
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
