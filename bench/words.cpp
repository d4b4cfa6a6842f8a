// SPDX-License-Identifier: LicenseRef-KT6120
#include "words.h"

#include <stdexcept>

namespace
{

struct Escape {
    char letter;
    char byte;
};
constexpr Escape escapes[] = {{'r', '\r'}, {'n', '\n'}, {'t', '\t'},
                              {'0', '\0'}, {'"', '"'},  {'\\', '\\'}};

// The byte meant by the escape whose letter stands at `at`; leaves `at` on its last character.
char unescape(const QByteArray &line, int &at)
{
    const char letter = line[at];
    if (letter == 'x') {
        bool ok = false;
        const int value = line.mid(at + 1, 2).toInt(&ok, 16);
        if (!ok || at + 2 >= line.size())
            throw std::runtime_error("\\x wants two hexadecimal digits");
        at += 2;
        return char(value);
    }
    for (const Escape &escape : escapes) {
        if (escape.letter == letter)
            return escape.byte;
    }
    throw std::runtime_error(std::string("unknown escape \\") + letter);
}

} // namespace

namespace words
{

QList<QByteArray> split(const QByteArray &line)
{
    QList<QByteArray> found;
    QByteArray word;
    bool inWord = false;
    bool quoted = false;
    for (int at = 0; at < line.size(); ++at) {
        const char c = line[at];
        if (c == '"') {
            quoted = !quoted;
            inWord = true; // "" is an empty word
        } else if (quoted && c == '\\' && at + 1 < line.size()) {
            word += unescape(line, ++at);
        } else if (!quoted && (c == ' ' || c == '\t' || c == '\r' || c == '\n')) {
            if (inWord)
                found.append(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (quoted)
        throw std::runtime_error("a quote is not closed");
    if (inWord)
        found.append(word);
    return found;
}

QByteArray printable(const QByteArray &bytes)
{
    QByteArray text;
    for (const char byte : bytes) {
        const Escape *known = nullptr;
        for (const Escape &escape : escapes) {
            if (escape.byte == byte && byte != '"')
                known = &escape;
        }
        if (known)
            text.append('\\').append(known->letter);
        else if (byte >= 0x20 && byte < 0x7f)
            text.append(byte);
        else
            text.append("\\x").append(QByteArray(1, byte).toHex());
    }
    return text;
}

} // namespace words
