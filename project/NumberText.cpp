#include "project/NumberText.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace {

// A double whose exact decimal expansion has 17 significant digits, the last
// being 5, lies exactly half-way between two 16-digit texts: std::to_chars
// rounds it to even, the table files round it away from zero. Such a value is
// N 2^-j with N odd and 1 <= j, and its expansion has the digits of N 5^j
// (odd, so it ends in 5). Returns that digit string as an integer, or 0.
std::uint64_t halfWayDigits(double magnitude, int &exponent10)
{
    // magnitude = mantissa 2^-j, read from the bits (a subnormal or zero has
    // j > 27 and is never half-way).
    std::uint64_t bits;
    std::memcpy(&bits, &magnitude, sizeof bits);
    const int biasedExponent = int(bits >> 52) & 0x7ff;
    if (biasedExponent == 0)
        return 0;
    std::uint64_t mantissa = (bits & ((1ull << 52) - 1)) | (1ull << 52);
    const int trailingZeros = __builtin_ctzll(mantissa);
    mantissa >>= trailingZeros;
    const int j = 1075 - biasedExponent - trailingZeros;
    // 5^28 alone has 20 digits, so only j up to 27 can give 17 digits.
    if (j < 1 || j > 27)
        return 0;
    const std::uint64_t low = 10000000000000000ull; // 10^16
    std::uint64_t digits = mantissa;
    for (int i = 0; i < j; ++i) {
        if (digits >= 10 * low) // more than 17 digits already; 5 x this still fits
            return 0;
        digits *= 5u;
    }
    if (digits < low || digits >= 10 * low)
        return 0;
    exponent10 = 16 - j; // the value is digits 10^-j
    return digits;
}

// The general format of digits (16 of them, no leading zero) times
// 10^(exponent10 - 15): fixed notation for exponents from -4 to 15, else
// scientific with at least two exponent digits; trailing zeros dropped.
char *appendGeneral(char *out, bool negative, std::uint64_t digits, int exponent10)
{
    char text[17];
    std::to_chars(text, text + 17, digits);
    int length = 16;
    while (length > 1 && text[length - 1] == '0')
        --length;
    if (negative)
        *out++ = '-';
    if (exponent10 < -4 || exponent10 >= 16) {
        *out++ = text[0];
        if (length > 1) {
            *out++ = '.';
            out = std::copy(text + 1, text + length, out);
        }
        *out++ = 'e';
        *out++ = exponent10 < 0 ? '-' : '+';
        const int magnitude = std::abs(exponent10);
        if (magnitude < 10)
            *out++ = '0';
        return std::to_chars(out, out + 4, magnitude).ptr;
    }
    if (exponent10 < 0) {
        *out++ = '0';
        *out++ = '.';
        for (int i = -1; i > exponent10; --i)
            *out++ = '0';
        return std::copy(text, text + length, out);
    }
    const int integerDigits = exponent10 + 1;
    for (int i = 0; i < integerDigits; ++i)
        *out++ = i < length ? text[i] : '0';
    if (length > integerDigits) {
        *out++ = '.';
        out = std::copy(text + integerDigits, text + length, out);
    }
    return out;
}

} // namespace

char *appendNumber(char *out, double value)
{
    if (std::isnan(value)) {
        std::memcpy(out, "nan", 3);
        return out + 3;
    }
    if (value == 0.0) { // also -0
        *out = '0';
        return out + 1;
    }
    int exponent10 = 0;
    if (const std::uint64_t digits = halfWayDigits(std::fabs(value), exponent10)) {
        // Half-way: round the 17 digits up in magnitude to 16 (a carry
        // gives 10^16, one more digit).
        std::uint64_t rounded = digits / 10 + 1;
        if (rounded == 10000000000000000ull) {
            rounded /= 10;
            ++exponent10;
        }
        return appendGeneral(out, value < 0, rounded, exponent10);
    }
    return std::to_chars(out, out + kMaxNumberText, value, std::chars_format::general, 16).ptr;
}

char *appendNumber(char *out, int value)
{
    return std::to_chars(out, out + kMaxNumberText, value).ptr;
}
