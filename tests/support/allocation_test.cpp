#include "support/allocation.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <gtest/gtest.h>
#include <jansson.h>

TEST(Allocation, TheChosenOneFailsOnce)
{
    const long before = allocations();
    fail_allocation(3);
    // Volatile, or Clang leaves out what is freed unused.
    void *volatile blocks[] = {malloc(1), calloc(1, 1), strdup("x"), malloc(1)};
    EXPECT_EQ(allocations() - before, 4);
    EXPECT_EQ(errno, ENOMEM);
    for (size_t i = 0; i < std::size(blocks); ++i) {
        EXPECT_EQ(blocks[i] == nullptr, i == 2) << i;
        free(blocks[i]);
    }

    json_set_alloc_funcs(malloc, free);
    fail_allocation(1);
    EXPECT_EQ(json_object(), nullptr);
    fail_allocation(1);
    fail_allocations_off();
    json_decref(json_object());
}
