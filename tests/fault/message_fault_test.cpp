// Messages without memory: each allocation of an encoding and of a decoding is made to fail in turn. The failure is
// reported, nothing leaks, and nothing is released twice; and releasing needs no memory at all.
#include <ZKQ_general.h>
#include <errno.h>

#include <functional>
#include <memory>
#include <utility>

#include "../support/heap.h"
#include "../support/message.h"
#include "fault.h"

namespace {

using namespace support;

/// A record that all modes carry, and that holds others in every way.
struct Node {
    int value;
    char* text;
    Leaf* leaf;
    Leaf leaves[2];
    int leafCount;
    Node* below;
    int count;
};
ZKQ_MSG_DECLARE_ITEM(Node_it)
ZKQ_MSG_DECLARE_ITEM(XmlNode_it)
const GENERAL_MSG_TEMPLATE kNode[] = {
    ZKQ_MSG_INT32(Node, value, "value", ""), ZKQ_MSG_STRINGPTR(Node, text, "text", "inner/"),
    ZKQ_MSG_RECORDPTR(Node, leaf, Leaf_it, "", "leaf"), ZKQ_MSG_RECORDS(Node, leaves, leafCount, Leaf_it, "", "leaves"),
    ZKQ_MSG_RECORDSPTR(Node, below, count, Node_it, "", "below")};
ZKQ_MSG_RECORD_ITEM(Node_it, kNode)
const GENERAL_MSG_TEMPLATE kXmlNode[] = {ZKQ_MSG_INT32(Node, value, "value", "@"),
                                         ZKQ_MSG_STRINGPTR(Node, text, "text", "/node/inner"),
                                         ZKQ_MSG_RECORDPTR(Node, leaf, Leaf_it, "", "/node/leaf"),
                                         ZKQ_MSG_RECORDS(Node, leaves, leafCount, Leaf_it, "", "/node/leaves/leaf/n"),
                                         ZKQ_MSG_RECORDSPTR(Node, below, count, XmlNode_it, "", "/node/list/node/n@")};
ZKQ_MSG_RECORD_ITEM(XmlNode_it, kXmlNode)
struct Document {
    Node node;
};
const GENERAL_MSG_TEMPLATE kDocument[] = {ZKQ_MSG_RECORD(Document, node, XmlNode_it, "", "/node")};
ZKQ_MSG_RECORD_ITEM(Document_it, kDocument)

struct Values {
    int* numbers;
    int numberCount;
    char** texts;
    int textCount;
    unsigned char* bytes;
    int byteCount;
};
const GENERAL_MSG_TEMPLATE kValues[] = {ZKQ_MSG_VALUESPTR(Values, numbers, numberCount, ZKQGeneral_INT32_it, "", "n"),
                                        ZKQ_MSG_VALUESPTR(Values, texts, textCount, ZKQGeneral_STRINGPTR_it, "", "t"),
                                        ZKQ_MSG_BYTEARRAYPTR(Values, bytes, byteCount, "b", "x@")};
ZKQ_MSG_RECORD_ITEM(Values_it, kValues)

char g_text[] = "a text that has a block of its own";
Leaf g_leaf = {5};

/// A chain of nodes, long enough for the stacks to move to the heap, with two nodes at its end.
std::vector<Node> Sample()
{
    constexpr size_t kDepth = 6;
    std::vector<Node> nodes(kDepth + 2, Node{1, g_text, &g_leaf, {{1}, {2}}, 2, nullptr, 0});
    return nodes;
}

/// What is encoded and decoded, in a mode.
struct Case {
    const char* name;
    int mode;
    const GENERAL_MSG_ITEM* (*item)();
    size_t size;
    bool isChain;

    friend void PrintTo(const Case& row, std::ostream* out) { *out << row.name; }
};

class MessageFault : public testing::TestWithParam<Case> {
protected:
    MessageFault() : nodes_(Sample())
    {
        // In mode 0 the members of later elements are not released, so there is one element in each array.
        const int last = GetParam().mode == ZKQ_MSG_DER ? 1 : 3;
        for (size_t i = 0; i + 3 < nodes_.size(); ++i) {
            nodes_[i].below = &nodes_[i + 1];
            nodes_[i].count = i + 4 < nodes_.size() ? 1 : last;
        }
    }
    const void* Record() const
    {
        return GetParam().isChain ? static_cast<const void*>(nodes_.data()) : static_cast<const void*>(&values_);
    }

private:
    std::vector<Node> nodes_;
    int numbers_[2] = {1, 2};
    char* texts_[2] = {g_text, g_text};
    unsigned char bytes_[3] = {1, 2, 3};
    Values values_ = {numbers_, 2, texts_, 2, bytes_, 3};
};

/// Runs an operation with each allocation failing in turn, until none is hit.
void Sweep(const std::function<void(bool hit, const std::string& place)>& check, const std::function<void()>& run)
{
    int hits = 0;
    for (const std::string function : {"malloc", "calloc", "realloc", "reallocarray", "strndup"}) {
        for (int call = 1;; ++call) {
            fault::Arm(function, call, {ENOMEM, false});
            run();
            const bool hit = fault::Disarm();
            check(hit, function + " call " + std::to_string(call));
            if (!hit)
                break;
            ++hits;
        }
    }
    EXPECT_GT(hits, 0);
}

TEST_P(MessageFault, EncodingReportsIt)
{
    const Case& row = GetParam();
    const std::string whole = Encoded(Record(), row.item(), row.mode);
    unsigned char* out = nullptr;
    int result = 0;
    Sweep(
        [&](bool hit, const std::string& place) {
            EXPECT_EQ(out == nullptr, hit) << place;
            if (hit) {
                EXPECT_TRUE(result == -9 || result == ENOMEM) << place << ": " << result;
            } else {
                EXPECT_EQ(result, row.mode == 0 ? static_cast<int>(whole.size()) : 0);
            }
            ZKQGeneral_FreeMallocBuffer(std::exchange(out, nullptr));
        },
        [&] { result = ZKQGeneral_MSG_i2d(Record(), &out, 0, row.item(), row.mode); });
}

TEST_P(MessageFault, DecodingReportsItAndReleasesAll)
{
    const Case& row = GetParam();
    const std::string whole = Encoded(Record(), row.item(), row.mode);
    const ExactBytes record(std::string(row.size, '\0'));
    std::unique_ptr<ExactBytes> input;
    int result = 0;
    const auto decode = [&] {
        {
            const fault::Pause pause;
            input = std::make_unique<ExactBytes>(whole + '\0');
        }
        result = ZKQGeneral_MSG_d2i(record.Data(), record.Size(), input->Data(), input->Size(), row.item(), row.mode);
    };
    Sweep(
        [&](bool hit, const std::string& place) {
            if (hit) {
                // The XML reader may just read less, of which anything can come.
                EXPECT_TRUE(result == -9 || result == -8 || result == ENOMEM || row.mode == ZKQ_MSG_XML)
                    << place << ": " << result;
                ZKQGeneral_MSG_free(record.Data(), row.item(), 0, row.mode); // nothing is released twice
                return;
            }
            EXPECT_EQ(result, 0);
            EXPECT_EQ(Encoded(record.Data(), row.item(), row.mode), whole);
            ZKQGeneral_MSG_free(record.Data(), row.item(), 0, row.mode);
        },
        decode);
}

INSTANTIATE_TEST_SUITE_P(Modes, MessageFault,
                         testing::Values(Case{"der", 0, Node_it, sizeof(Node), true},
                                         Case{"xml", 1, Document_it, sizeof(Document), true},
                                         Case{"json", 2, Node_it, sizeof(Node), true},
                                         Case{"json_values", 2, Values_it, sizeof(Values), false}),
                         [](const auto& row) { return row.param.name; });

/// A tree of so many levels in which the last element of each array is the one with others below it.
Tree MakeTree(int depth)
{
    Tree root = {};
    for (Tree* node = &root; depth > 0; --depth) {
        node->count = 3;
        node->below = static_cast<Tree*>(calloc(3, sizeof(Tree)));
        for (int i = 0; i < 2; ++i) {
            node->below[i].count = 1;
            node->below[i].below = static_cast<Tree*>(calloc(1, sizeof(Tree)));
        }
        node = &node->below[2];
    }
    return root;
}

TEST(MessageRelease, NeedsNoMemory)
{
    for (const int mode : {1, 2}) {
        const auto release = [mode] {
            Tree tree = {};
            {
                const fault::Pause pause;
                tree = MakeTree(300);
            }
            ZKQGeneral_MSG_free(&tree, Tree_it(), 0, mode);
            EXPECT_EQ(tree.below, nullptr);
        };
        release();
        const size_t before = HeapInUse();
        int hits = 0;
        for (const char* const function : {"malloc", "realloc", "reallocarray", "calloc"}) {
            fault::Arm(function, 0, {ENOMEM, false});
            release();
            hits += fault::Disarm() ? 1 : 0;
        }
        EXPECT_GT(hits, 0) << "it would have liked some";
        EXPECT_LT(HeapInUse(), before + 10000);
    }
}

} // namespace
