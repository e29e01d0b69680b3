// The tables of single characters, and the converters that are kept.

#include <gtest/gtest.h>
#include <string.h>

#include "../src/internal/charset.h"
#include "../src/internal/charset_table.h"
#include "../src/internal/converter.h"
#include "support/bare_iconv.h"
#include "support/error_text.h"

namespace {

uint16_t AsUnit(const std::string& bytes)
{
    uint16_t unit = 0;
    memcpy(&unit, bytes.data(), std::min(bytes.size(), sizeof unit));
    return unit;
}

TEST(CharsetTable, HasEveryCharacterOfGbk)
{
    const support::BareIconv bare("UNICODELITTLE", "GBK");
    GbkTable table = {};
    int known = 0;
    for (unsigned lead = 0x80; lead < 0x100; ++lead) {
        EXPECT_EQ(table.Pair(lead, 0xA1), 0);
        EXPECT_TRUE(table.Load(lead));
        EXPECT_FALSE(table.Load(lead)) << "done already";
        const support::Converted single = bare({static_cast<char>(lead)});
        EXPECT_EQ(table.Single(lead), AsUnit(single.bytes)) << lead;
        for (unsigned trail = 0; trail < 0x100; ++trail) {
            const support::Converted pair = bare({static_cast<char>(lead), static_cast<char>(trail)});
            const bool isOne = pair.error == 0 && pair.bytes.size() == 2;
            ASSERT_EQ(table.Pair(lead, trail), isOne ? AsUnit(pair.bytes) : 0) << lead << " " << trail;
            known += isOne;
        }
    }
    EXPECT_GT(known, 21000);
}

TEST(CharsetTable, HasEveryCharacterOfUcs2)
{
    const support::BareIconv bare("GBK", "UNICODELITTLE");
    auto* const table = new Ucs2Table();
    int known = 0;
    for (unsigned unit = 1; unit < 0x10000; ++unit) {
        if (unit % 0x100 == 0 || unit == 1) {
            EXPECT_TRUE(table->Load(unit >> 8));
        }
        const support::Converted result = bare({static_cast<char>(unit), static_cast<char>(unit >> 8)});
        ASSERT_EQ(table->Gbk(unit), AsUnit(result.bytes)) << unit;
        known += !result.bytes.empty();
    }
    EXPECT_EQ(table->Gbk(0), 0);
    EXPECT_FALSE(table->Load(0x4E)) << "done already";
    EXPECT_GT(known, 21000);
    delete table;
}

TEST(Converter, IsReadyAgainAfterAFailure)
{
    for (int i = 0; i < 3; ++i) {
        Converter converter(kUtf8ToGbk);
        ASSERT_EQ(converter.Error(), 0);
        const unsigned char text[] = {'a', 0xE4, 0xB8};
        unsigned char room[8] = {};
        const unsigned char* in = text;
        unsigned char* out = room;
        EXPECT_EQ(converter.Run(&in, sizeof text, &out, sizeof room), EINVAL);
        EXPECT_EQ(in, text + 1);
        EXPECT_EQ(out, room + 1);
    }
    CloseConverters();
    EXPECT_EQ(RequireConverter(kUtf8ToGbk), 0);
}

TEST(Converter, TwoAtOnceAreTwo)
{
    Converter one(kGbkToUtf8);
    Converter two(kGbkToUtf8);
    const unsigned char text[] = {0xD6, 0xD0};
    for (Converter* each : {&one, &two}) {
        unsigned char room[8];
        const unsigned char* in = text;
        unsigned char* out = room;
        EXPECT_EQ(each->Run(&in, sizeof text, &out, sizeof room), 0);
        EXPECT_EQ(out - room, 3);
    }
}

TEST(ConvertText, LeavesTheErrorTextAlone)
{
    int length = 0;
    support::MarkErrorText();
    EXPECT_EQ(ConvertText(kUtf8ToGbk, "\xFF", 1, nullptr, &length), EILSEQ);
    EXPECT_EQ(ConvertText(kUtf8ToGbk, "a", 1, nullptr, nullptr), EINVAL);
    char out[2];
    EXPECT_EQ(ConvertText(kUtf8ToGbk, "a", 1, out, &length), EMSGSIZE);
    EXPECT_TRUE(support::ErrorTextIsMarked());
}

} // namespace
