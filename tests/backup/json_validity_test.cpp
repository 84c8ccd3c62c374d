#include <fstream>
#include <random>
#include <string>

#include "backup/json_writer.h"
#include "support/machine_test.h"
#include "support/shell.h"

// Random documents, judged by programs that read JSON for a living.

namespace {

/// Makes the same random document twice: with the library, and as a Python literal in which an object is a list of
/// pairs, an array a tuple and a text its UTF-8 bytes.
class RandomDocument {
public:
    explicit RandomDocument(uint64_t seed) : random_(seed) {}

    std::string Make()
    {
        Container(true, 0);
        json_.Finish();
        return {reinterpret_cast<const char*>(json_.Text()), json_.TextLength()};
    }
    const std::string& Literal() const { return literal_; }

private:
    uint64_t Below(uint64_t limit) { return random_() % limit; }

    /// A code point that UTF-8 can carry, often one that needs care.
    uint32_t CodePoint()
    {
        switch (Below(6)) {
        case 0:
            return static_cast<uint32_t>(1 + Below(0x1F));
        case 1:
            return static_cast<uint32_t>("\"\\/\x7F"[Below(4)]);
        case 2:
            return static_cast<uint32_t>(0x20 + Below(0x5F));
        case 3:
            return static_cast<uint32_t>(0x80 + Below(0x780));
        case 4:
            return static_cast<uint32_t>(0x800 + Below(0xD000));
        default:
            return static_cast<uint32_t>(0x10000 + Below(0x100000));
        }
    }

    std::string Text()
    {
        std::string text;
        const uint64_t length = Below(12);
        for (uint64_t i = 0; i < length; ++i) {
            const uint32_t point = CodePoint();
            if (point < 0x80) {
                text += static_cast<char>(point);
                continue;
            }
            const int more = point < 0x800 ? 1 : point < 0x10000 ? 2 : 3;
            const uint32_t lead = more == 1 ? 0xC0 : more == 2 ? 0xE0 : 0xF0;
            text += static_cast<char>(lead | point >> (6 * more));
            for (int rest = more - 1; rest >= 0; --rest) {
                text += static_cast<char>(0x80 | (point >> (6 * rest) & 0x3F));
            }
        }
        return text;
    }

    void PutTextLiteral(const std::string& text)
    {
        constexpr const char* digits = "0123456789abcdef";
        literal_ += "b'";
        for (const char character : text) {
            const auto byte = static_cast<uint8_t>(character);
            literal_ += "\\x";
            literal_ += digits[byte >> 4];
            literal_ += digits[byte & 15];
        }
        literal_ += "'";
    }

    void Container(bool object, int depth)
    {
        object ? json_.BeginObject() : json_.BeginArray();
        literal_ += object ? "[" : "(";
        const uint64_t members = Below(6);
        for (uint64_t i = 0; i < members; ++i) {
            if (object) {
                const std::string key = Text();
                json_.Key(key.c_str());
                literal_ += "(";
                PutTextLiteral(key);
                literal_ += ",";
            }
            Value(depth + 1);
            literal_ += object ? ")," : ",";
        }
        object ? json_.EndObject() : json_.EndArray();
        literal_ += object ? "]" : ")";
    }

    void Value(int depth)
    {
        const uint64_t kind = Below(depth < 12 ? 6 : 4);
        if (kind >= 4) {
            Container(kind == 4, depth);
        } else if (kind == 3) {
            const std::string text = Text();
            json_.StringValue(text.c_str());
            PutTextLiteral(text);
        } else if (kind == 2) {
            const bool truth = Below(2) != 0;
            json_.BoolValue(truth);
            literal_ += truth ? "True" : "False";
        } else {
            const uint64_t number = random_() >> Below(64);
            json_.UIntValue(number);
            literal_ += std::to_string(number);
        }
    }

    std::mt19937_64 random_;
    kk::JsonWriter json_;
    std::string literal_;
};

class JsonValidityTest : public MachineTest {
protected:
    static constexpr uint64_t kDocuments = 400;

    JsonValidityTest()
    {
        std::ofstream documents(folder / "documents", std::ios::binary);
        std::ofstream literals(folder / "literals", std::ios::binary);
        for (uint64_t seed = 1; seed <= kDocuments; ++seed) {
            RandomDocument document(seed);
            documents << document.Make() << '\n';
            literals << document.Literal() << '\n';
        }
    }

    TemporaryFolder folder;
};

TEST_F(JsonValidityTest, RandomDocumentsAreValidForJq)
{
    EXPECT_EQ(Shell("jq -c type '" + (folder / "documents").string() + "' | sort | uniq -c | tr -d ' '"),
              std::to_string(kDocuments) + "\"object\"\n");
}

TEST_F(JsonValidityTest, RandomDocumentsMeanWhatWasWritten)
{
    const std::string script = R"(
import ast, json, sys
def plain(value):
    if isinstance(value, bytes):
        return value.decode('utf-8')
    if isinstance(value, tuple):
        return tuple(plain(item) for item in value)
    if isinstance(value, list):
        return [(plain(key), plain(item)) for key, item in value]
    return value
def reread(value):
    if isinstance(value, Pairs):
        return [(key, reread(item)) for key, item in value.pairs]
    if isinstance(value, list):
        return tuple(reread(item) for item in value)
    return value
class Pairs:
    def __init__(self, pairs):
        self.pairs = pairs
documents = open(sys.argv[1] + '/documents', 'rb').read().split(b'\n')
literals = open(sys.argv[1] + '/literals', 'rb').read().split(b'\n')
same = 0
for document, literal in zip(documents[:-1], literals[:-1], strict=True):
    assert b' ' not in document.replace(b' ', b'') and document[:1] == b'{'
    text = document.decode('utf-8', 'strict')
    found = reread(json.loads(text, object_pairs_hook=Pairs))
    assert found == plain(ast.literal_eval(literal.decode('ascii'))), text
    same += 1
print(same)
)";

    EXPECT_EQ(Shell("python3 - '" + folder.Path().string() + "' <<'SCRIPT'" + script + "SCRIPT\ntrue"),
              std::to_string(kDocuments) + "\n");
}

}  // namespace
