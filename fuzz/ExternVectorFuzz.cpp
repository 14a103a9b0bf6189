// SPDX-License-Identifier: Apache-2.0

// Any bytes as a list of calls of an external vector, of which every answer is compared with the model of the
// tests.

#include <tests/Persistence/ExternVectorModel.h>

#include "Input.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const * data, std::size_t size)
{
    GTEST_FLAG_SET(throw_on_failure, true);
    qz_fuzz::Input input(data, size);
    auto const word = [&input] {
        int const high = input.byte();
        return static_cast<unsigned>(high << 8 | input.byte());
    };
    qz_test::ExternVectorModel model(1 + word() % 700, word);
    while (!input.isUsedUp())
        model.step(false);
    model.checkAll();
    return 0;
}
