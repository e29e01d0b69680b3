// Editing XML documents: each byte is a choice of a step that is done to a document and to a model of it; after every one
// they are compared. Input: a text, a NUL, and the choices.
#include <ZKQ_general.h>

#include "../support/xml_edit.h"
#include "fuzz.h"

namespace {

/// Choices from the input; 0 when it is used up.
class InputChoices final : public support::model::Choices {
public:
    InputChoices(const uint8_t* data, size_t size) : data_(data), size_(size) {}
    unsigned Below(unsigned end) override
    {
        if (size_ == 0)
            return 0;
        --size_;
        return *data_++ % end;
    }
    bool IsUsedUp() const { return size_ == 0; }

private:
    const uint8_t* data_;
    size_t size_;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    constexpr size_t maxText = 400;
    const std::string text = Texts(data, size, 1).front().substr(0, maxText);
    const size_t used = std::min(size, text.size() + 1);
    InputChoices choices(data + used, size - used);
    support::model::XmlEditor editor(text, &choices);
    while (!choices.IsUsedUp()) {
        const std::string error = editor.Step();
        if (!error.empty())
            fprintf(stderr, "%s\n", error.c_str());
        REQUIRE(error.empty());
        REQUIRE(editor.Compare().empty());
    }
    return 0;
}
