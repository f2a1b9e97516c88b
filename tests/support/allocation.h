// allocation.h - makes a chosen allocation of the library fail.
//
// For STATIC tests: they are linked with malloc, calloc, realloc, strdup and strndup wrapped, which
// catches the calls of the library's own objects and of the test. What shared libraries allocate
// inside (fopen(), jansson, operator new) is neither counted nor failed; jansson joins in after
// json_set_alloc_funcs(malloc, free) in the test.
#ifndef ZORV_TESTS_SUPPORT_ALLOCATION_H
#define ZORV_TESTS_SUPPORT_ALLOCATION_H

// Fails the n-th allocation from now, once, with ENOMEM; 1 is the next one.
void fail_allocation(long n);

// Fails none any more.
void fail_allocations_off();

// The allocations since the process began, failed ones too.
long allocations();

#endif
