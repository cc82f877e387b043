// Text conversions between the module's 8-bit (UTF-8) text and wide strings.
#include "TextConvert.h"

#include <cstdint>
#include <cstring>

#include "QMXCommon.h"

namespace qmxhost {

namespace {

constexpr char32_t kReplacement = 0xFFFD;

int EncodeUtf8(char32_t cp, char out[4])
{
    if (!IsScalarValue(cp))
        cp = kReplacement;
    if (cp < 0x80) {
        out[0] = static_cast<char>(cp);
        return 1;
    }
    if (cp < 0x800) {
        out[0] = static_cast<char>(0xC0 | (cp >> 6));
        out[1] = static_cast<char>(0x80 | (cp & 0x3F));
        return 2;
    }
    if (cp < 0x10000) {
        out[0] = static_cast<char>(0xE0 | (cp >> 12));
        out[1] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
        out[2] = static_cast<char>(0x80 | (cp & 0x3F));
        return 3;
    }
    out[0] = static_cast<char>(0xF0 | (cp >> 18));
    out[1] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out[2] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out[3] = static_cast<char>(0x80 | (cp & 0x3F));
    return 4;
}

}  // namespace

bool IsScalarValue(char32_t cp)
{
    return cp <= 0x10FFFF && (cp < 0xD800 || cp > 0xDFFF);
}

std::optional<char32_t> DecodeUtf8(const unsigned char*& s, const unsigned char* end)
{
    const unsigned char lead = *s++;
    if (lead < 0x80)
        return lead;
    int extra;
    char32_t cp;
    char32_t minimum;
    if ((lead & 0xE0) == 0xC0) {
        extra = 1, cp = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        extra = 2, cp = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        extra = 3, cp = lead & 0x07, minimum = 0x10000;
    } else {
        return std::nullopt;
    }
    const unsigned char* p = s;
    for (int i = 0; i < extra; ++i, ++p) {
        if (p == end || (*p & 0xC0) != 0x80)
            return std::nullopt;
        cp = (cp << 6) | (*p & 0x3F);
    }
    if (cp < minimum || !IsScalarValue(cp))
        return std::nullopt;
    s = p;
    return cp;
}

void AppendUtf8(std::string& out, wchar_t ch)
{
    char bytes[4];
    out.append(bytes, static_cast<size_t>(EncodeUtf8(static_cast<char32_t>(ch), bytes)));
}

}  // namespace qmxhost

namespace QMXCommon {

int Char2WChar(const char* source, wchar_t* target, int targetLength)
{
    if (source == nullptr || target == nullptr || targetLength <= 0)
        return -1;
    // Malformed input yields U+FFFD and consumes one byte, so every byte string converts.
    const auto* s = reinterpret_cast<const unsigned char*>(source);
    const auto* end = s + std::strlen(source);
    int written = 0;
    while (s != end && written < targetLength - 1)
        target[written++] = static_cast<wchar_t>(qmxhost::DecodeUtf8(s, end).value_or(qmxhost::kReplacement));
    target[written] = L'\0';
    return written;
}

int WChar2Char(const wchar_t* source, char* target, int targetLength)
{
    if (source == nullptr || target == nullptr || targetLength <= 0)
        return -1;
    int written = 0;
    for (; *source != L'\0'; ++source) {
        if (static_cast<uint32_t>(*source) < 0x80) {  // ASCII, which curve texts are: one byte
            if (written + 1 > targetLength - 1)
                break;
            target[written++] = static_cast<char>(*source);
            continue;
        }
        char bytes[4];
        const int n = qmxhost::EncodeUtf8(static_cast<char32_t>(*source), bytes);
        if (written + n > targetLength - 1)
            break;
        std::memcpy(target + written, bytes, static_cast<size_t>(n));
        written += n;
    }
    target[written] = '\0';
    return written;
}

}  // namespace QMXCommon
