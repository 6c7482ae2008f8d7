#include "json.h"

#include <cmath>
#include <cstdio>

namespace kestro {

void JsonWriter::separate()
{
    if (m_afterKey) {
        m_afterKey = false;
        return;
    }
    if (!m_first.empty()) {
        if (!m_first.back())
            m_out += ", ";
        m_first.back() = false;
    }
}

JsonWriter &JsonWriter::beginObject()
{
    separate();
    m_out += '{';
    m_first.push_back(true);
    return *this;
}

JsonWriter &JsonWriter::endObject()
{
    m_out += '}';
    m_first.pop_back();
    return *this;
}

JsonWriter &JsonWriter::beginArray()
{
    separate();
    m_out += '[';
    m_first.push_back(true);
    return *this;
}

JsonWriter &JsonWriter::endArray()
{
    m_out += ']';
    m_first.pop_back();
    return *this;
}

JsonWriter &JsonWriter::key(const char *name)
{
    separate();
    m_out += quote(QString::fromUtf8(name));
    m_out += ": ";
    m_afterKey = true;
    return *this;
}

std::string JsonWriter::formatNumber(double number)
{
    if (std::isnan(number))
        return "\"nan\"";
    if (std::isinf(number))
        return number > 0 ? "\"inf\"" : "\"-inf\"";
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.17g", number);
    return buffer;
}

std::string JsonWriter::quote(const QString &text)
{
    const QByteArray utf8 = text.toUtf8();
    std::string out = "\"";
    for (unsigned char c : utf8) {
        switch (c) {
        case '"':
            out += "\\\"";
            break;
        case '\\':
            out += "\\\\";
            break;
        case '\n':
            out += "\\n";
            break;
        case '\r':
            out += "\\r";
            break;
        case '\t':
            out += "\\t";
            break;
        case '\b':
            out += "\\b";
            break;
        case '\f':
            out += "\\f";
            break;
        default:
            if (c < 0x20) {
                char buffer[8];
                std::snprintf(buffer, sizeof buffer, "\\u%04x", c);
                out += buffer;
            } else {
                out += static_cast<char>(c);
            }
        }
    }
    out += '"';
    return out;
}

JsonWriter &JsonWriter::value(double number)
{
    separate();
    m_out += formatNumber(number);
    return *this;
}

JsonWriter &JsonWriter::value(int number)
{
    return value(static_cast<long long>(number));
}

JsonWriter &JsonWriter::value(unsigned number)
{
    return value(static_cast<long long>(number));
}

JsonWriter &JsonWriter::value(long long number)
{
    separate();
    m_out += std::to_string(number);
    return *this;
}

JsonWriter &JsonWriter::value(bool flag)
{
    separate();
    m_out += flag ? "true" : "false";
    return *this;
}

JsonWriter &JsonWriter::value(const char *text)
{
    return value(QString::fromUtf8(text));
}

JsonWriter &JsonWriter::value(const QString &text)
{
    separate();
    m_out += quote(text);
    return *this;
}

JsonWriter &JsonWriter::null()
{
    separate();
    m_out += "null";
    return *this;
}

JsonWriter &JsonWriter::numbers(const std::vector<double> &values)
{
    beginArray();
    for (double v : values)
        value(v);
    return endArray();
}

} // namespace kestro
