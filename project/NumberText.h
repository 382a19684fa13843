// Numbers as the table files write them, without locale-bound streams: the
// text of a double is its general format with 16 significant digits, as a C
// locale text stream with precision 16 writes it (ties of the 17th digit
// rounded away from zero, no sign on a zero or a NaN: "0", "nan", "inf",
// "-inf", "1.5e-07", "123456.7890123457").
#pragma once

#include <string>

// Longest text appendNumber writes.
constexpr int kMaxNumberText = 32;

// Writes the text at out (at least kMaxNumberText bytes) and returns the end.
char *appendNumber(char *out, double value);
char *appendNumber(char *out, int value);

// The matrix text: each row's values joined by "," and followed by "\n".
template<typename Matrix>
void appendMatrixText(std::string &text, const Matrix &matrix)
{
    char cell[kMaxNumberText + 1];
    for (const auto &row : matrix) {
        for (int c = 0; c < row.size(); ++c) {
            char *end = appendNumber(cell, row[c]);
            if (c + 1 < row.size())
                *end++ = ',';
            text.append(cell, std::size_t(end - cell));
        }
        text += '\n';
    }
}
