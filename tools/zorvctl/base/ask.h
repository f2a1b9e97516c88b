// ask.h - questions whose answer "no" has to be told from "could not ask".
#ifndef ZORVCTL_ASK_H
#define ZORVCTL_ASK_H

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include "base/output.h"

namespace ctl {

// Whether there is such a path; throws io_failure() when nobody can tell.
bool exists(const std::string &path);

// Reads a file to its end; nothing when it is not there.
std::optional<std::string> read_if_there(const std::string &path);

// Throws io_failure() for a file that is there and cannot be read.
inline void expect_readable(const std::string &path)
{
    read_if_there(path);
}

// The names in a folder, but for "." and ".."; throws io_failure() when it cannot be read to its
// end.
std::vector<std::string> names_in(const std::string &folder);

// Throws io_failure() for an errno, unless it says that something is not there.
void expect_answer(const std::string &source, int error);

// Asks the library. Many of its functions have one result for "no" and for a source that could not
// be read; errno, which they leave alone otherwise, tells the two apart.
template <class Question>
auto ask(const std::string &source, Question question)
{
    errno = 0;
    auto answer = question();
    expect_answer(source, errno);
    return answer;
}

// The same where errno is lost, as the library goes on to other files: two answers that agree
// count.
template <class Question>
auto ask_twice(const std::string &source, Question question)
{
    auto answer = question();
    if (answer != question())
        throw Failure(Exit::failed, source + ": one of its files could not be read for a moment");
    return answer;
}

} // namespace ctl

#endif
