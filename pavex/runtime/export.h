// Marks what a shared build of the library exports. Everything else stays hidden.

#pragma once

#define PAVEX_API __attribute__((visibility("default")))
