#include "Platform/State/ObjectReference.h"

#include <bit>
#include <string_view>
#include <unordered_map>

namespace Vela {

namespace {

using Address = uint64_t;

std::unordered_map<Address, Referable*>& referables() {
    static std::unordered_map<Address, Referable*> all;
    return all;
}

Address addressOf(const Referable* object) {
    return std::bit_cast<Address>(object);
}

std::string head(const char* typeName) {
    return std::string("Ref('") + typeName + "', ";
}

} // namespace

Referable::Referable() {
    referables().emplace(addressOf(this), this);
}

Referable::~Referable() {
    referables().erase(addressOf(this));
}

std::string objectReference(const Referable* object) {
    if (!object) {
        return "None";
    }
    return head(object->typeName()) + std::to_string(addressOf(object)) + ")";
}

Ptr<Referable> parseObjectReference(ValueParser& parser, const char* typeName) {
    if (parser.accept("None")) {
        return nullptr;
    }
    parser.expect(head(typeName));
    size_t addressOffset = parser.offset();
    auto found = referables().find(parser.number(~Address{0}));
    bool valid = found != referables().end() && !found->second->destroyed() &&
                 std::string_view(found->second->typeName()) == typeName;
    if (!valid) {
        parser.fail(std::string("the address of a ") + typeName, addressOffset);
    }
    parser.expect(")");
    return found->second;
}

} // namespace Vela
