// The checksum behind the copy of a state file: written by vesk_backup_state(), looked at by a
// recovery. zlib has the CRC, so it needs no table of its own here.
#include "box/state_file.hpp"

#include <cstring>
#include <zlib.h>

#include "support/big_endian.hpp"

static constexpr unsigned char checksum_mark[4] = {'V', 'S', 'K', 'C'};

static uint32_t _checksum(const unsigned char *bytes, std::size_t n)
{
    return static_cast<uint32_t>(crc32(0, bytes, static_cast<uInt>(n)));
}

bool _vesk_append_copy_checksum(byte_list *bytes)
{
    const uint32_t stored = big_endian(_checksum(bytes->begin(), bytes->size()));
    unsigned char trailer[copy_checksum_size];
    std::memcpy(trailer, checksum_mark, sizeof checksum_mark);
    std::memcpy(trailer + sizeof checksum_mark, &stored, sizeof stored);
    return bytes->append(trailer, sizeof trailer);
}

copy_checksum _vesk_check_copy(const unsigned char *bytes, std::size_t n, std::size_t state_size)
{
    if (n == state_size && n > 0) {
        return copy_checksum::absent;
    }
    if (n < copy_checksum_size || n > UINT32_MAX) {
        return copy_checksum::wrong;
    }
    const std::size_t covered = n - copy_checksum_size;
    uint32_t stored = 0;
    std::memcpy(&stored, bytes + covered + sizeof checksum_mark, sizeof stored);
    const bool right = std::memcmp(bytes + covered, checksum_mark, sizeof checksum_mark) == 0 &&
                       big_endian(stored) == _checksum(bytes, covered);
    return right ? copy_checksum::right : copy_checksum::wrong;
}
