// The canonical curve text: a direct writer and the reader of exactly what it
// writes, so that long curves are written and read without a document tree.
#include "CurveCodec.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace core {

namespace {

// ---- writer ----

// Each writer puts its text at `out` and returns its end. The longest is a
// real: 24 characters ("-2.2250738585072014e-308"), or 19 with ".0".
constexpr size_t kLongestNumber = 26;

char* WriteWord(char* out, std::string_view word)
{
    return std::copy(word.begin(), word.end(), out);
}

// A double as the library writes it: "%.17g", ".0" appended when neither a
// point nor an exponent shows, and null / -1e+9999 / 1e+9999 when not finite.
char* WriteReal(char* out, double value)
{
    if (!std::isfinite(value))
        return WriteWord(out, std::isnan(value) ? "null" : value < 0 ? "-1e+9999" : "1e+9999");
    char* end = std::to_chars(out, out + kLongestNumber, value, std::chars_format::general, 17).ptr;
    if (std::find_if(out, end, [](char c) { return c == '.' || c == 'e'; }) == end)
        end = WriteWord(end, ".0");
    return end;
}

char* WriteInt(char* out, int value)
{
    return std::to_chars(out, out + kLongestNumber, value).ptr;
}

// Throws AnyBadAccess for a value of another kind.
char* WriteValue(char* out, const ValAny& value, ParameterTypeEnum type)
{
    switch (type) {
    case eParameterTypeDouble: return WriteReal(out, value.Get<double>());
    case eParameterTypeInt: return WriteInt(out, value.Get<int>());
    case eParameterTypeBool: return WriteWord(out, value.Get<bool>() ? "true" : "false");
    default: return WriteWord(out, "null");
    }
}

// ---- reader of the canonical form ----

// Reads exactly what the writer produces, for the types with persisted
// values. Gives up (false) on anything else, including numbers whose meaning
// under Json::Reader could differ (integers where reals are written, values
// out of range, subnormals), so that the library decides those.
class CanonicalReader {
public:
    explicit CanonicalReader(std::string_view text) : m_text(text), m_pos(0) {}

    // Keys go into `keys` in text order; a later key at a time already there
    // is dropped. False leaves the reading place where the text went wrong.
    bool Read(ParameterTypeEnum& type, ValAny& minValue, ValAny& maxValue, KeyStore& keys)
    {
        // The range comes before the type in the text: keep its tokens.
        const size_t maxStart = m_pos + std::strlen("{\"MaxValue\":");
        if (!Literal("{\"MaxValue\":") || !SkipToken())
            return false;
        const size_t maxEnd = m_pos, minStart = m_pos + std::strlen(",\"MinValue\":");
        if (!Literal(",\"MinValue\":") || !SkipToken())
            return false;
        const size_t minEnd = m_pos;
        int typeNumber = 0;
        if (!Literal(",\"ParamType\":") || !Int(typeNumber))
            return false;
        type = static_cast<ParameterTypeEnum>(typeNumber);
        if (!HasPersistedValues(type))
            return false;
        const size_t afterType = m_pos;
        m_pos = maxStart;
        if (!Value(type, maxValue) || m_pos != maxEnd)
            return false;
        m_pos = minStart;
        if (!Value(type, minValue) || m_pos != minEnd)
            return false;
        m_pos = afterType;
        if (!Literal(",\"nodes\":"))
            return false;
        if (Literal("null"))
            return Finish();
        if (!Literal("["))
            return false;
        ValAny value;
        do {
            double time, left, right;
            int kind;
            if (!Literal("[") || !Real(time) || !Literal(",") || !Value(type, value) || !Literal(",") || !Int(kind) ||
                !Literal(",") || !Real(left) || !Literal(",") || !Real(right) || !Literal("]"))
                return false;
            keys.insert(TimeValuePair(time, value, static_cast<KeyframeInterpolationType>(kind), left, right));
        } while (Literal(","));
        return Literal("]") && Finish();
    }

    size_t Position() const { return m_pos; }

private:
    bool Literal(std::string_view word)
    {
        if (m_text.substr(m_pos, word.size()) != word)
            return false;
        m_pos += word.size();
        return true;
    }
    bool Finish() { return Literal("}") && (m_pos == m_text.size() || m_text.substr(m_pos) == "\n"); }
    // Skips a number or a boolean literal.
    bool SkipToken()
    {
        const size_t start = m_pos;
        while (m_pos < m_text.size() && std::strchr("+-.0123456789Eaeflrstu", m_text[m_pos]) != nullptr)
            ++m_pos;
        return m_pos > start;
    }
    // The characters a number may hold; the grammar is checked afterwards.
    static bool InNumber(char c)
    {
        return (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '+' || c == 'e' || c == 'E';
    }
    // The number at the reading place in JSON's grammar,
    // -?(0|[1-9][0-9]*)(.[0-9]+)?([eE][+-]?[0-9]+)?, and whether it has a
    // point or an exponent; empty when the characters that could belong to a
    // number there do not make one.
    std::string_view Number(bool& real)
    {
        const size_t start = m_pos;
        size_t i = m_pos;
        const auto at = [&](char c) { return i < m_text.size() && m_text[i] == c; };
        const auto digits = [&] {
            const size_t first = i;
            while (i < m_text.size() && m_text[i] >= '0' && m_text[i] <= '9')
                ++i;
            return i - first;
        };
        if (at('-'))
            ++i;
        const size_t first = i, whole = digits();
        bool ok = whole > 0 && (whole == 1 || m_text[first] != '0');
        real = false;
        if (ok && at('.')) {
            ++i;
            real = true;
            ok = digits() > 0;
        }
        if (ok && (at('e') || at('E'))) {
            ++i;
            real = true;
            if (at('+') || at('-'))
                ++i;
            ok = digits() > 0;
        }
        if (!ok || (i < m_text.size() && InNumber(m_text[i])))
            return {};
        m_pos = i;
        return m_text.substr(start, i - start);
    }
    bool Int(int& out)
    {
        bool real = false;
        const std::string_view token = Number(real);
        if (token.empty() || real)
            return false;
        const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), out);
        return error == std::errc() && end == token.data() + token.size();
    }
    // A real as the writer spells it: with a point or an exponent, finite,
    // normal or zero.
    bool Real(double& out)
    {
        bool real = false;
        const std::string_view token = Number(real);
        if (!real)
            return false;
        const auto [end, error] = std::from_chars(token.data(), token.data() + token.size(), out);
        if (error != std::errc() || end != token.data() + token.size())
            return false;
        return out == 0.0 || std::fabs(out) >= std::numeric_limits<double>::min();
    }
    bool Value(ParameterTypeEnum type, ValAny& out)
    {
        switch (type) {
        case eParameterTypeDouble: {
            double number = 0.0;
            if (!Real(number))
                return false;
            out = ValAny(number);
            return true;
        }
        case eParameterTypeInt: {
            int number = 0;
            if (!Int(number))
                return false;
            out = ValAny(number);
            return true;
        }
        default:
            if (Literal("true"))
                out = ValAny(true);
            else if (Literal("false"))
                out = ValAny(false);
            else
                return false;
            return true;
        }
    }

    std::string_view m_text;
    size_t m_pos;
};

}  // namespace

bool HasPersistedValues(ParameterTypeEnum type)
{
    return type == eParameterTypeDouble || type == eParameterTypeInt || type == eParameterTypeBool;
}

std::string WriteCurveText(const CurveTextHeader& header, const KeyStore& keys)
{
    const ParameterTypeEnum type = header.type;
    const bool withValues = HasPersistedValues(type);
    std::string out;
    out.reserve(64 + keys.size() * 96);
    out += '{';
    // Each piece is written into a line buffer and appended whole.
    char line[8 * kLongestNumber];
    char* end = line;
    if (withValues) {
        end = WriteWord(end, "\"MaxValue\":");
        end = WriteValue(end, header.maxValue, type);
        end = WriteWord(end, ",\"MinValue\":");
        end = WriteValue(end, header.minValue, type);
        *end++ = ',';
    }
    end = WriteWord(end, "\"ParamType\":");
    end = WriteInt(end, static_cast<int>(type));
    end = WriteWord(end, ",\"nodes\":");
    out.append(line, end);
    if (keys.empty())
        out += "null";
    char separator = '[';
    for (const TimeValuePair& key : keys) {
        end = line;
        *end++ = separator;
        separator = ',';
        *end++ = '[';
        end = WriteReal(end, key.GetTime());
        *end++ = ',';
        if (withValues) {
            end = WriteValue(end, key.StoredValue(), type);
            *end++ = ',';
        }
        end = WriteInt(end, static_cast<int>(key.GetInterpolation()));
        *end++ = ',';
        end = WriteReal(end, key.GetLeftDerivative());
        *end++ = ',';
        end = WriteReal(end, key.GetRightDerivative());
        *end++ = ']';
        out.append(line, end);
    }
    if (!keys.empty())
        out += ']';
    out += "}\n";
    return out;
}

bool ReadCanonicalCurveText(std::string_view text, CurveTextContent& out, std::string& error)
{
    CanonicalReader reader(text);
    CurveTextHeader& header = out.header;
    if (reader.Read(header.type, header.minValue, header.maxValue, out.keys))
        return true;
    out.header = CurveTextHeader();
    out.keys.clear();
    error = "not the canonical curve text at character " + std::to_string(reader.Position());
    return false;
}

}  // namespace core
