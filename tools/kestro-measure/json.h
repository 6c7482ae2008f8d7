#pragma once
// A small streaming JSON writer for kestro-measure: numbers print with %.17g,
// non-finite numbers as the strings "inf", "-inf" and "nan", strings are
// escaped as JSON requires. Commas are placed automatically.

#include <QString>
#include <string>
#include <vector>

namespace kestro {

class JsonWriter
{
public:
    JsonWriter &beginObject();
    JsonWriter &endObject();
    JsonWriter &beginArray();
    JsonWriter &endArray();
    // Writes the key of the next member of the current object.
    JsonWriter &key(const char *name);

    JsonWriter &value(double number);
    JsonWriter &value(int number);
    JsonWriter &value(long long number);
    JsonWriter &value(unsigned number);
    JsonWriter &value(bool flag);
    JsonWriter &value(const char *text);
    JsonWriter &value(const QString &text);
    JsonWriter &null();

    // key(name).value(v) in one call.
    template<typename T>
    JsonWriter &field(const char *name, const T &v)
    {
        key(name);
        return value(v);
    }

    // An array of numbers.
    JsonWriter &numbers(const std::vector<double> &values);

    const std::string &text() const { return m_out; }

    static std::string formatNumber(double number);
    static std::string quote(const QString &text);

private:
    void separate();
    std::string m_out;
    std::vector<bool> m_first; // per open container: no member written yet
    bool m_afterKey = false;
};

} // namespace kestro
