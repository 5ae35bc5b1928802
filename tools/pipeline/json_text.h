#pragma once

#include <string>
#include <string_view>

// JSON values appended to a string the caller keeps from frame to frame, so
// that a line costs no allocation once the string has grown to its length.
namespace nerva_pipeline {

void append_json(std::string& out, long long value);

// The shortest digits that read back as `value`: in plain decimal, with a
// point, from 0.0001 to below 1e15 ("12.5", "3.0", "0.0001"), else with an
// exponent of two digits at least ("1e-05", "1.25e+16"). NaN and the
// infinities, which JSON cannot write, are null.
void append_json(std::string& out, double value);

// Quoted, with ", \ and the control characters escaped; other bytes are
// copied, so UTF-8 stays UTF-8.
void append_json(std::string& out, std::string_view text);

// `"key":` — keys are the format's own names, never escaped.
inline void append_key(std::string& out, std::string_view key)
{
    out += '"';
    out += key;
    out += "\":";
}

}  // namespace nerva_pipeline
