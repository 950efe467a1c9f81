// Turns the choices of the user into the types of the templates.

#pragma once

#include "tools/choice/options.h"
#include "tools/source/source.h"

#include <complex>
#include <optional>
#include <variant>

namespace Pavex::Tool {

// A type to choose at run time.
template <typename T>
struct Tag {
  using Type = T;
};

using ValueTag =
    std::variant<Tag<float>, Tag<double>, Tag<std::complex<float>>, Tag<std::complex<double>>>;
using IndexTag = std::variant<Tag<int>, Tag<long>>;

ValueTag TagOf(ValueKind kind);
IndexTag TagOf(IndexKind kind);

// Calls function(Tag<T>(), Tag<I>()) with the types that the kinds name.
template <typename Function>
void WithTypes(ValueKind value, IndexKind index, Function const& function) {
  std::visit(function, TagOf(value), TagOf(index));
}

// The chosen kind, or without a choice double (complex double for complex input). Throws
// InputError if the values of complex input do not fit into it. Without `withValues` they may
// not fit.
ValueKind ChooseValue(Source const& source, std::optional<ValueKind> asked, bool withValues);

}  // namespace Pavex::Tool
