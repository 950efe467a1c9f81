// The message of a view of another library's matrix that is refused.

#pragma once

#include <stdexcept>
#include <string>

namespace Pavex {

// The text of the std::invalid_argument that `call` throws; "accepted" if it throws nothing.
template <typename Call>
std::string RefusalOf(Call const& call) {
  try {
    call();
  } catch (std::invalid_argument const& refusal) {
    return refusal.what();
  }
  return "accepted";
}

}  // namespace Pavex
