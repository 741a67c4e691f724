// SPDX-License-Identifier: LGPL-2.1-or-later
// The exact integer inverse transform of an 8x8 block.
#pragma once

// Rows first, then columns. Samples are centred on 0 and not limited to 8 bits. Arithmetic
// wraps at 32 bits, so every input has a defined result. Both blocks are row by row.
void jpeg_idct(const int* coefficients, int* samples);
