#pragma once

#include <stdexcept>

namespace Vela {

/// A value outside what its type allows, with the text that names type, attribute and bound.
/// Leaving a reaction it ends that reaction alone; leaving a walk it aborts that walk.
class RangeError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Text that is not the value form that was expected.
class ParseError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// An entry was asked for again under its key, but with a different value. Entries are created
/// with their value and never change it, so this is an error of the caller.
class EntryExistsError : public std::logic_error {
  public:
    using std::logic_error::logic_error;
};

} // namespace Vela
