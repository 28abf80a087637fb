#include "Platform/Trace/test/SwiftlogFixture.h"

#include <cstddef>
#include <limits>
#include <optional>
#include <sstream>

namespace Vela {
namespace {

class SwiftlogTypeTest : public SwiftlogFixture {
  protected:
    SwiftlogTypeTest() { Swiftlog::initialize(config()); }

    /// The text of a record with one field of `value`, read back from the file.
    template <class Value>
    std::string roundTrip(const Value& value) {
        struct Record {
            uint8_t before = 0xff;
            Value value;
            uint8_t after = 0xff;
        };
        static const SwiftlogType<Record> record{"U", "t", 0, {{"", &Record::value}}};
        record.write({.value = value});
        return texts(Swiftlog::fileName()).back();
    }
};

TEST_F(SwiftlogTypeTest, ARecordSaysWhereAndWhatItIs) {
    struct VrfIdUpdate {
        SwiftlogText<16> vrfName;
        uint32_t vrfId;
    };
    static const SwiftlogType<VrfIdUpdate> record{
        "ArpSuppression/VlanL3InfoSm",
        "updateVrfId",
        0,
        {{"vrfInfo=", &VrfIdUpdate::vrfName}, {" vrfId=", &VrfIdUpdate::vrfId}},
        " done"};
    record.write({std::string("red"), 7});
    SwiftlogReader reader(Swiftlog::fileName());
    ASSERT_EQ(reader.records().size(), 1u);
    const SwiftlogRecord& read = reader.records()[0];
    ASSERT_NE(read.type, nullptr);
    EXPECT_EQ(read.type->unit, "ArpSuppression/VlanL3InfoSm");
    EXPECT_EQ(read.type->title, "updateVrfId");
    EXPECT_EQ(read.level, 0u);
    EXPECT_EQ(read.text(), "vrfInfo=red vrfId=7 done");

    std::ostringstream line;
    line << read;
    EXPECT_TRUE(testing::internal::RE::FullMatch(
        line.str(), "[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{6} 0 "
                    "ArpSuppression/VlanL3InfoSm updateVrfId vrfInfo=red vrfId=7 done"))
        << line.str();
}

TEST_F(SwiftlogTypeTest, FieldsPrintInTheOrderTheyAreNamed) {
    struct Pair {
        uint8_t a;
        uint64_t b;
    };
    static const SwiftlogType<Pair> record{"U", "t", 0, {{"b=", &Pair::b}, {" a=", &Pair::a}}};
    record.write({1, 2});
    EXPECT_EQ(texts(Swiftlog::fileName()).back(), "b=2 a=1");
}

TEST_F(SwiftlogTypeTest, Booleans) {
    EXPECT_EQ(roundTrip(true), "yes");
    EXPECT_EQ(roundTrip(false), "no");
}

TEST_F(SwiftlogTypeTest, Characters) {
    EXPECT_EQ(roundTrip('U'), "U");
    EXPECT_EQ(roundTrip('\n'), "\\n");
    EXPECT_EQ(roundTrip('\0'), "\\x00");
}

template <class Integer>
std::string least() {
    return std::to_string(std::numeric_limits<Integer>::min());
}
template <class Integer>
std::string most() {
    return std::to_string(std::numeric_limits<Integer>::max());
}

TEST_F(SwiftlogTypeTest, IntegersOfEachWidth) {
    EXPECT_EQ(roundTrip(std::numeric_limits<int8_t>::min()), least<int8_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<int8_t>::max()), most<int8_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<int16_t>::min()), least<int16_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<int32_t>::min()), least<int32_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<int64_t>::min()), least<int64_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<int64_t>::max()), most<int64_t>());
    EXPECT_EQ(roundTrip(-1LL), "-1");
    EXPECT_EQ(roundTrip(std::numeric_limits<uint8_t>::max()), most<uint8_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<uint16_t>::max()), most<uint16_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<uint32_t>::max()), most<uint32_t>());
    EXPECT_EQ(roundTrip(std::numeric_limits<uint64_t>::max()), most<uint64_t>());
    EXPECT_EQ(roundTrip(uint8_t{0}), "0");
}

TEST_F(SwiftlogTypeTest, Doubles) {
    EXPECT_EQ(roundTrip(0.1), "0.1");
    EXPECT_EQ(roundTrip(-2.5), "-2.5");
    EXPECT_EQ(roundTrip(std::numeric_limits<double>::lowest()), "-1.7976931348623157e+308");
    EXPECT_EQ(roundTrip(std::numeric_limits<double>::infinity()), "inf");
}

TEST_F(SwiftlogTypeTest, Pointers) {
    int object = 0;
    std::ostringstream expected;
    expected << static_cast<const void*>(&object);
    EXPECT_EQ(roundTrip(&object), expected.str());
    EXPECT_EQ(roundTrip(static_cast<const void*>(&object)), expected.str());
    EXPECT_EQ(roundTrip(static_cast<int*>(nullptr)), "NULL");
}

TEST_F(SwiftlogTypeTest, TextsAreCutWithAMark) {
    EXPECT_EQ(roundTrip(SwiftlogText<4>()), "");
    EXPECT_EQ(roundTrip(SwiftlogText<4>("")), "");
    EXPECT_EQ(roundTrip(SwiftlogText<4>("abcd")), "abcd");
    EXPECT_EQ(roundTrip(SwiftlogText<4>(std::string("abcde"))), "abcd...");
    EXPECT_EQ(roundTrip(SwiftlogText<255>(std::string(255, 'x'))), std::string(255, 'x'));
    EXPECT_EQ(roundTrip(SwiftlogText<255>(std::string(256, 'x'))), std::string(255, 'x') + "...");
    EXPECT_EQ(roundTrip(SwiftlogText<8>("a\nb")), "a\\nb");
    EXPECT_EQ(roundTrip(SwiftlogText<8>(std::string_view("a\0b", 3))), "a\\x00b");
}

TEST_F(SwiftlogTypeTest, EthernetAddresses) {
    EXPECT_EQ(roundTrip(Zinc::EthAddr({0x00, 0x1c, 0x73, 0xab, 0xcd, 0xef})), "00:1c:73:ab:cd:ef");
}

TEST_F(SwiftlogTypeTest, IpAddresses) {
    EXPECT_EQ(roundTrip(Zinc::IpGenAddr(0x0a00ff01)), "10.0.255.1");
    EXPECT_EQ(roundTrip(Zinc::IpGenAddr(
                  Zinc::IpGenAddr::Bytes{0xfe, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1})),
              "fe80::1");
    EXPECT_EQ(roundTrip(Zinc::IpGenAddr()), "none");
}

TEST_F(SwiftlogTypeTest, WithoutFieldsTheClosingStandsAlone) {
    struct Empty {};
    static const SwiftlogType<Empty> record{"U", "t", 0, {}, "walk restarted"};
    record.write({});
    EXPECT_EQ(texts(Swiftlog::fileName()).back(), "walk restarted");
}

TEST_F(SwiftlogTypeTest, ControlCharactersInLiteralsStayInTheLine) {
    static const SwiftlogType<Number> record{
        "unit\n", "title\n", 0, {{"label\n", &Number::value}}, "\n"};
    record.write({1});
    SwiftlogReader reader(Swiftlog::fileName());
    std::ostringstream line;
    line << reader.records().back();
    EXPECT_TRUE(line.str().ends_with(" 0 unit\\n title\\n label\\n1\\n")) << line.str();
}

TEST_F(SwiftlogTypeTest, ARecordIsFoundByTheAddressesInIt) {
    struct Record {
        uint16_t vlanId;
        Zinc::IpGenAddr sender;
        int16_t level;
        Zinc::IpGenAddr target;
    };
    static const SwiftlogType<Record> record{"U",
                                             "t",
                                             0,
                                             {{"<vlanId=", &Record::vlanId},
                                              {" sender=", &Record::sender},
                                              {" level=", &Record::level},
                                              {" target=", &Record::target}}};
    record.write({10, Zinc::IpGenAddr("10.0.0.1"), 7, Zinc::IpGenAddr("2001:db8::1")});
    SwiftlogReader reader(Swiftlog::fileName());
    ASSERT_EQ(reader.records().size(), 1u);
    SwiftlogRecord read = reader.records()[0];
    EXPECT_TRUE(read.holds(Zinc::IpGenAddr("10.0.0.1")));
    EXPECT_TRUE(read.holds(Zinc::IpGenAddr("2001:db8::1")));
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("10.0.0.2")));
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("2001:db8::10")));
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("a00:1::"))) << "the bytes of 10.0.0.1";
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr()));
    EXPECT_EQ(read.number("vlanId="), 10u);
    EXPECT_EQ(read.number("level="), std::nullopt) << "it has a sign";
    EXPECT_EQ(read.number("sender="), std::nullopt);
    EXPECT_EQ(read.number("vlan"), std::nullopt);

    read.payload = read.payload.first(offsetof(Record, target) + 16);
    EXPECT_TRUE(read.holds(Zinc::IpGenAddr("10.0.0.1")));
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("2001:db8::1"))) << "it was cut";
    read.payload = read.payload.first(1);
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("10.0.0.1")));
    EXPECT_EQ(read.number("vlanId="), std::nullopt);
    read.payload = {};
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("10.0.0.1")));
    read.type = nullptr;
    EXPECT_FALSE(read.holds(Zinc::IpGenAddr("10.0.0.1")));
    EXPECT_EQ(read.number(""), std::nullopt);
}

} // namespace
} // namespace Vela
