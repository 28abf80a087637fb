#pragma once

#include "Platform/Base/ValueParser.h"
#include "Platform/State/Entity.h"

#include <string>

namespace Vela {

/// Base of the few entities that values refer to: their raw reference can be written into text and
/// read back in the same process while the object lives.
class Referable : public Entity {
  protected:
    Referable();
    ~Referable() override;
};

/// "Ref('VrfInfo', 94371822374448)", or "None" for no object.
std::string objectReference(const Referable* object);

/// Reads such a text; raises ParseError for any other, and for an object that is of another type,
/// is destroyed or never existed. `typeName` is the type's Entity::typeName.
Ptr<Referable> parseObjectReference(ValueParser& parser, const char* typeName);

} // namespace Vela
