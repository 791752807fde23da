#pragma once
// Status codes of the library (short, 0 success). Internal header: the library and its
// tests name codes through st::..., hosts see the numbers documented in the README.
namespace st {
constexpr short ok = 0;
constexpr short stack_alloc = 10;  // the matrix stack could not be allocated
constexpr short stack_full = 12;   // the matrix stack is full
constexpr short singular = 13;     // singular matrix
constexpr short bad_input = 110;   // invalid or degenerate input, unset position, failed I/O
constexpr short bad_index = 111;   // index, range or direction error; too few knots; null stream
constexpr short no_memory = 115;   // a list could not grow
constexpr short wrong_kind = 121;  // element of the wrong kind for the operation
constexpr short low_weight = 146;  // weight below the minimum weight
constexpr short no_change = 150;   // nothing to change; not an error
constexpr short out_of_surface = 176;  // parameter outside the surface's range
constexpr short zero_vector = 177;     // zero-length vector where a direction is required
}  // namespace st
