#include "json_text.h"

#include <charconv>
#include <cmath>
#include <cstdlib>

namespace nerva_pipeline {

void append_json(std::string& out, long long value)
{
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    out.append(digits, end);
}

void append_json(std::string& out, double value)
{
    if (!std::isfinite(value)) {
        out += "null";
        return;
    }
    if (value == 0.0) {
        out += std::signbit(value) ? "-0.0" : "0.0";
        return;
    }
    // Shortest round-trip digits in scientific form, "d.ddde±x", laid out again.
    char sci[32];
    const char* end = std::to_chars(sci, sci + sizeof sci, value, std::chars_format::scientific).ptr;
    const char* p = sci;
    if (*p == '-') {
        out += '-';
        ++p;
    }
    char digits[20];
    int count = 0;
    for (; *p != 'e'; ++p)
        if (*p != '.') digits[count++] = *p;
    int exponent = 0;
    std::from_chars(p + 1 + (p[1] == '+'), end, exponent);
    const int point = exponent + 1;  // digits before the decimal point
    constexpr int kMostDigitsBeforePoint = 15, kMostZerosAfterPoint = 3;
    if (count <= point && point <= kMostDigitsBeforePoint) {
        out.append(digits, count);
        out.append(point - count, '0');
        out += ".0";
    } else if (0 < point && point <= kMostDigitsBeforePoint) {
        out.append(digits, point);
        out += '.';
        out.append(digits + point, count - point);
    } else if (point <= 0 && -point <= kMostZerosAfterPoint) {
        out += "0.";
        out.append(-point, '0');
        out.append(digits, count);
    } else {
        out += digits[0];
        if (count > 1) {
            out += '.';
            out.append(digits + 1, count - 1);
        }
        out += exponent < 0 ? "e-" : "e+";
        if (std::abs(exponent) < 10) out += '0';
        append_json(out, static_cast<long long>(std::abs(exponent)));
    }
}

void append_json(std::string& out, std::string_view text)
{
    static const char kHex[] = "0123456789abcdef";
    out += '"';
    for (const char c : text) {
        switch (c) {
        case '"': out += "\\\""; break;
        case '\\': out += "\\\\"; break;
        case '\b': out += "\\b"; break;
        case '\f': out += "\\f"; break;
        case '\n': out += "\\n"; break;
        case '\r': out += "\\r"; break;
        case '\t': out += "\\t"; break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                out += "\\u00";
                out += kHex[c >> 4];
                out += kHex[c & 15];
            } else {
                out += c;
            }
        }
    }
    out += '"';
}

}  // namespace nerva_pipeline
