// faults.h - what the torture runner shares with the process that it torments.
#ifndef ZORV_TESTS_SUPPORT_FAULTS_H
#define ZORV_TESTS_SUPPORT_FAULTS_H

#include <atomic>

#include <sys/mman.h>
#include <sys/types.h>

// In memory that runner, process and its forks share. Only while `armed` are calls counted.
struct FaultPlan {
    std::atomic<bool> armed;
    std::atomic<pid_t> spared; // a process whose calls are not counted all the same
    std::atomic<long> count;   // allocations
    std::atomic<bool> hit;     // one of the calls has failed
    bool allocations;          // whether they are what fails; else it is the runner's system calls
    long first, last;          // those that fail; 1 is the first, a last of 0 lets none fail
    std::atomic<int> listener; // the descriptor at which the runner is asked, 0 until there is one
    std::atomic<bool> attended;
    bool ended;           // the scenario came to its end
    long blocks;          // of the library's memory that it left
    int descriptors;      // that it left
    char result[1 << 16]; // a text
};

constexpr char kFaultsVariable[] = "ZORV_FAULTS"; // of a program: the descriptor of the plan

// The plan of a descriptor.
inline FaultPlan *share_plan(int fd)
{
    return static_cast<FaultPlan *>(
        mmap(nullptr, sizeof(FaultPlan), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
}

extern FaultPlan *g_followed; // by allocations

// Blocks that the library, jansson and libevent have allocated while armed, and not released.
long library_blocks();

#endif
