// The calls that an operation makes to its pool and its communicator, and how many lines it
// prints when one of them fails. The model shares no code with the library.

#pragma once

#include "tests/property/round.h"
#include "tests/support/comm_call.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace Pavex {

enum class Operation { GATHER, GATHER_AGAIN, UPDATE, UPDATE_COO, UPDATE_IN_PLACE, SCATTER };

char const* NameOf(Operation operation);

// The operations that the matrix of this round supports.
std::vector<Operation> OperationsOn(Round const& round);

// Why a call is made.
enum class Purpose {
  RECORDS,              // pool: one record per rank
  EXCHANGE,             // the records of all ranks
  COUNTS,               // pool: entries of each rank,
  DISPLS,               // and where they go
  DENSE_STORAGE,        // pool: the gathered values
  DENSE_PACKING,        // pool: a padded matrix without its padding
  DENSE_FROM_PIECES,    // dense values of all ranks
  DENSE_FROM_HOLDER,    // dense values of one rank
  DENSE_REORDER,        // pool: values in their other order
  DENSE_RECEIVE,        // pool: values scattered to a padded matrix, without padding
  DENSE_BACK,           // scattered values
  OFFSETS,              // pool: gathered offsets
  ZERO_OFFSETS,         // pool: the zeros that a holder without offsets sends
  LENGTH_COUNTS,        // pool: rows (columns) of each rank,
  LENGTH_DISPLS,        // and where they go
  LENGTHS,              // pool: the rank's own lengths
  LENGTHS_FROM_PIECES,  // lengths of all ranks
  OFFSETS_FROM_HOLDER,  // offsets of one rank
  INDICES,              // pool: a gathered index array
  MOVED_INDICES,        // its transfer
  VALUES,               // pool: gathered sparse values
  MOVED_VALUES          // their transfer
};

// One call.
struct Step {
  Purpose purpose;
  bool isPool = false;
  std::size_t bytes = 0;     // requested from the pool
  CommOp op = CommOp::RANK;  // made on the communicator

  // Whether the block stays with the aggregator when the operation fails later on.
  bool IsKept() const {
    return purpose == Purpose::RECORDS || purpose == Purpose::COUNTS ||
           purpose == Purpose::DISPLS;
  }
};

// Bytes of an element.
struct ElementBytes {
  std::size_t value;
  std::size_t index;
};

// All calls of rank `rank` in their order.
std::vector<Step> StepsOf(Round const& round, int rank, Operation operation,
                          ElementBytes bytes);

// Every kind of call that some operation makes. GATHER represents all gathers and UPDATE all
// updates, because an update in place makes the same calls as an update.
std::vector<std::pair<Purpose, Operation>> CallsThatOccur();

// How many times the status of the failing call is printed. Throws std::logic_error if the
// operation makes no such call.
int LinesOf(Purpose purpose, Operation operation);

}  // namespace Pavex
