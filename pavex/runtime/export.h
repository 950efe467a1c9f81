// What a shared build of the library shows to its users; everything else stays hidden.

#pragma once

#define PAVEX_API __attribute__((visibility("default")))
