#pragma once

#include <cstdint>

#include "core/byte_buffer.h"

namespace kk {

/// Writes compact JSON (RFC 8259), without any white space, from UTF-8 text. Never reports a failure, on purpose: what
/// it writes accompanies work that is done, and must not undo it. A byte for which there is no memory is left out and
/// writing goes on.
class JsonWriter {
public:
    /// A member's name. At the outermost level, where no object is open, it is preceded by a comma on purpose: the
    /// writer takes it for one more member.
    void Key(const char* name);

    void StringValue(const char* text);
    void UIntValue(uint64_t value);
    void BoolValue(bool value);

    void StringField(const char* key, const char* text);
    void UIntField(const char* key, uint64_t value);
    void BoolField(const char* key, bool value);

    void BeginObject();
    void EndObject();
    void BeginArray();
    void EndArray();

    /// Terminates the text.
    void Finish();

    [[nodiscard]] const uint8_t* Text() const { return text_.Data(); }

    /// Bytes of a finished text, without the terminator. One too few, on purpose, when there was no memory for that:
    /// the text is spoilt then anyway, and its length needs no second rule.
    [[nodiscard]] uint64_t TextLength() const { return text_.Length() == 0 ? 0 : text_.Length() - 1; }

private:
    /// What the stack remembers of an open container.
    enum Container : uint8_t { HasMembers = 0, Empty = 1 };

    void BeforeValue();
    void Begin(char bracket);
    void End(char bracket);
    void Put(char character);
    void PutText(const char* text);
    void PutQuoted(const char* text);
    void PutEscaped(uint8_t byte);
    [[nodiscard]] uint8_t* Innermost();

    ByteBuffer text_;
    ByteBuffer stack_;  // a Container for each one that is open, innermost last
    bool valuePending_ = false;
};

}  // namespace kk
