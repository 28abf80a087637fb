#include "Platform/State/ObjectReference.h"

#include "Platform/Base/Errors.h"
#include "Platform/State/test/StateFixture.h"

#include <string>

namespace Vela {
namespace {

class Vrf : public Referable {
  public:
    const char* typeName() const noexcept override { return "Vrf"; }
};

class Port : public Referable {
  public:
    const char* typeName() const noexcept override { return "Port"; }
};

class ObjectReferenceTest : public StateFixture {
  protected:
    static Ptr<Referable> parse(const std::string& text, const char* typeName = "Vrf") {
        ValueParser parser(text);
        Ptr<Referable> object = parseObjectReference(parser, typeName);
        parser.end();
        return object;
    }
    static std::string address(const Referable& object) {
        return std::to_string(reinterpret_cast<uintptr_t>(&object));
    }
};

TEST_F(ObjectReferenceTest, NamesTypeAndAddress) {
    auto vrf = make<Vrf>();
    EXPECT_EQ(objectReference(vrf.get()), "Ref('Vrf', " + address(*vrf) + ")");
    EXPECT_EQ(objectReference(nullptr), "None");
}

TEST_F(ObjectReferenceTest, IsReadBackWhileTheObjectLives) {
    auto first = make<Vrf>();
    auto second = make<Vrf>();
    auto port = make<Port>();
    EXPECT_EQ(parse(objectReference(first.get())), first);
    EXPECT_EQ(parse(objectReference(second.get())), second);
    EXPECT_EQ(parse(objectReference(port.get()), "Port"), port);
    EXPECT_EQ(parse("None"), nullptr);
}

TEST_F(ObjectReferenceTest, StandsWithinALongerText) {
    auto vrf = make<Vrf>();
    std::string text = "<" + objectReference(vrf.get()) + ", None>";
    ValueParser parser(text);
    parser.expect("<");
    EXPECT_EQ(parseObjectReference(parser, "Vrf"), vrf);
    parser.expect(", ");
    EXPECT_EQ(parseObjectReference(parser, "Vrf"), nullptr);
    parser.expect(">");
    parser.end();
}

TEST_F(ObjectReferenceTest, WhatWasReadKeepsTheObject) {
    auto vrf = make<Vrf>();
    auto read = parse(objectReference(vrf.get()));
    vrf.reset();
    EXPECT_FALSE(read->destroyed());
    EXPECT_EQ(parse(objectReference(read.get())), read);
}

TEST_F(ObjectReferenceTest, AnObjectOfAnotherTypeIsAnError) {
    auto port = make<Port>();
    EXPECT_THROW(parse(objectReference(port.get())), ParseError);
    EXPECT_THROW(parse("Ref('Vrf', " + address(*port) + ")"), ParseError);
}

TEST_F(ObjectReferenceTest, ADestroyedObjectIsAnErrorThoughItsMemoryRemains) {
    auto vrf = make<Vrf>();
    std::string text = objectReference(vrf.get());
    vrf->destroy();
    EXPECT_THROW(parse(text), ParseError);
}

TEST_F(ObjectReferenceTest, AFreedObjectIsAnError) {
    auto vrf = make<Vrf>();
    std::string text = objectReference(vrf.get());
    vrf.reset();
    EXPECT_THROW(parse(text), ParseError);
}

TEST_F(ObjectReferenceTest, AnAddressThatNeverWasAnObjectIsAnError) {
    auto vrf = make<Vrf>();
    EXPECT_THROW(parse("Ref('Vrf', 0)"), ParseError);
    EXPECT_THROW(parse("Ref('Vrf', 1)"), ParseError);
    EXPECT_THROW(parse("Ref('Vrf', 18446744073709551615)"), ParseError);
    auto within = std::to_string(reinterpret_cast<uintptr_t>(vrf.get()) + 1);
    EXPECT_THROW(parse("Ref('Vrf', " + within + ")"), ParseError);
}

TEST_F(ObjectReferenceTest, TheErrorSaysWhatWasExpectedAndWhere) {
    try {
        parse("Ref('Vrf', 12)");
        ADD_FAILURE() << "no error";
    } catch (const ParseError& error) {
        std::string text = error.what();
        EXPECT_NE(text.find("the address of a Vrf"), text.npos) << text;
        EXPECT_NE(text.find("11"), text.npos) << text;
    }
}

TEST_F(ObjectReferenceTest, GarbageIsAnError) {
    auto vrf = make<Vrf>();
    std::string good = objectReference(vrf.get());
    for (size_t length = 0; length < good.size(); ++length) {
        EXPECT_THROW(parse(good.substr(0, length)), ParseError) << length;
    }
    std::string number = address(*vrf);
    for (const std::string& bad :
         {good + " ", " " + good, "Ref('Vrf', 0" + number + ")", "Ref('Vrf',  " + number + ")",
          "Ref('Vrf', -" + number + ")", "Ref('Vrf', " + number + "0000000000)",
          "Ref(\"Vrf\", " + number + ")", "ref('Vrf', " + number + ")",
          "Ref('Vrf', " + number + ").", std::string("none"), std::string("Nonesuch"),
          std::string("NULL"), std::string("Ref('', 0)")}) {
        EXPECT_THROW(parse(bad), ParseError) << bad;
    }
    EXPECT_EQ(parse(good), vrf);
}

} // namespace
} // namespace Vela
