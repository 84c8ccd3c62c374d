#include "core/text.h"

namespace kk {

size_t TextLength(const char16_t* text)
{
    return TextLength(text, SIZE_MAX);
}

size_t TextLength(const char16_t* text, size_t limit)
{
    size_t length = 0;
    while (length < limit && text[length] != 0) {
        ++length;
    }
    return length;
}

void AppendUnit(char16_t* buffer, size_t capacity, size_t& position, char16_t unit)
{
    if (position < capacity && capacity - position > 1) {
        buffer[position++] = unit;
    }
    if (position < capacity) {
        buffer[position] = 0;
    }
}

void AppendText(char16_t* buffer, size_t capacity, size_t& position, const char16_t* text)
{
    while (*text != 0 && position < capacity && capacity - position > 1) {
        buffer[position++] = *text++;
    }
    if (position < capacity) {
        buffer[position] = 0;
    }
}

void AppendDecimal(char16_t* buffer, size_t capacity, size_t& position, uint32_t value)
{
    char16_t text[11] = {};
    size_t first = 10;
    do {
        text[--first] = static_cast<char16_t>(u'0' + value % 10);
        value /= 10;
    } while (value != 0);
    AppendText(buffer, capacity, position, text + first);
}

void CopyText(char16_t* buffer, size_t capacity, const char16_t* text)
{
    size_t position = 0;
    AppendText(buffer, capacity, position, text);
}

bool SameText(const char16_t* a, const char16_t* b)
{
    while (*a != 0 && *a == *b) {
        ++a;
        ++b;
    }
    return *a == *b;
}

}  // namespace kk
