#include "backup/json_writer.h"

#include "backup/text_formats.h"

namespace kk {

void JsonWriter::Key(const char* name)
{
    uint8_t* const container = Innermost();
    if (container == nullptr || *container == HasMembers) {
        Put(',');
    }
    if (container != nullptr) {
        *container = HasMembers;
    }
    PutQuoted(name);
    Put(':');
    valuePending_ = true;
}

void JsonWriter::BeforeValue()
{
    if (valuePending_) {
        valuePending_ = false;
        return;
    }
    uint8_t* const container = Innermost();
    if (container == nullptr) {
        return;
    }
    if (*container == HasMembers) {
        Put(',');
    }
    *container = HasMembers;
}

void JsonWriter::StringValue(const char* text)
{
    BeforeValue();
    PutQuoted(text);
}

void JsonWriter::UIntValue(uint64_t value)
{
    BeforeValue();
    char text[21] = {};
    size_t first = sizeof(text) - 1;
    do {
        text[--first] = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    PutText(text + first);
}

void JsonWriter::BoolValue(bool value)
{
    BeforeValue();
    PutText(value ? "true" : "false");
}

void JsonWriter::StringField(const char* key, const char* text)
{
    Key(key);
    StringValue(text);
}

void JsonWriter::UIntField(const char* key, uint64_t value)
{
    Key(key);
    UIntValue(value);
}

void JsonWriter::BoolField(const char* key, bool value)
{
    Key(key);
    BoolValue(value);
}

void JsonWriter::BeginObject()
{
    Begin('{');
}

void JsonWriter::EndObject()
{
    End('}');
}

void JsonWriter::BeginArray()
{
    Begin('[');
}

void JsonWriter::EndArray()
{
    End(']');
}

void JsonWriter::Finish()
{
    if (text_.Length() == 0 || text_.Data()[text_.Length() - 1] != 0) {
        Put('\0');
    }
}

void JsonWriter::Begin(char bracket)
{
    BeforeValue();
    Put(bracket);
    // Without memory the stack stays shallower than the text; the document is spoilt then in any case.
    (void)stack_.Append(Empty);
}

void JsonWriter::End(char bracket)
{
    if (stack_.Length() > 0) {
        (void)stack_.Resize(stack_.Length() - 1);
    }
    Put(bracket);
}

void JsonWriter::Put(char character)
{
    (void)text_.Append(static_cast<uint8_t>(character));
}

void JsonWriter::PutText(const char* text)
{
    for (; *text != 0; ++text) {
        Put(*text);
    }
}

void JsonWriter::PutQuoted(const char* text)
{
    Put('"');
    for (; *text != 0; ++text) {
        PutEscaped(static_cast<uint8_t>(*text));
    }
    Put('"');
}

void JsonWriter::PutEscaped(uint8_t byte)
{
    switch (byte) {
    case '"':
        PutText("\\\"");
        return;
    case '\\':
        PutText("\\\\");
        return;
    case '\n':
        PutText("\\n");
        return;
    case '\r':
        PutText("\\r");
        return;
    case '\t':
        PutText("\\t");
        return;
    default:
        break;
    }
    if (byte >= 0x20) {
        Put(static_cast<char>(byte));
        return;
    }
    PutText("\\u00");
    Put(HexDigit(byte >> 4));
    Put(HexDigit(byte));
}

uint8_t* JsonWriter::Innermost()
{
    return stack_.Length() == 0 ? nullptr : stack_.Data() + stack_.Length() - 1;
}

}  // namespace kk
