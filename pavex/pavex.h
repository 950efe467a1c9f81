// The whole public core in one include.

#pragma once

#include "pavex/aggregator/aggregator.h"
#include "pavex/aggregator/plan.h"
#include "pavex/assembly/assembler.h"
#include "pavex/matrix/coo.h"
#include "pavex/matrix/csc.h"
#include "pavex/matrix/csr.h"
#include "pavex/matrix/dense.h"
#include "pavex/matrix/index_base.h"
#include "pavex/matrix/store.h"
#include "pavex/matrix/store_type.h"
#include "pavex/runtime/buffer.h"
#include "pavex/runtime/comm.h"
#include "pavex/runtime/log.h"
#include "pavex/runtime/memory_pool.h"
#include "pavex/runtime/self_comm.h"
#include "pavex/runtime/status.h"
#include "pavex/runtime/version.h"
