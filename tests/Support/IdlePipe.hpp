// A pipe nobody writes to: reading from it blocks in a system call until the thread is terminated.
#pragma once

#include <unistd.h>

namespace VantrelTest
{

class IdlePipe
{
public:
    IdlePipe()
    {
        if (::pipe(ends) != 0)
        {
            ends[0] = ends[1] = -1;
        }
    }
    ~IdlePipe()
    {
        ::close(ends[0]);
        ::close(ends[1]);
    }
    IdlePipe(const IdlePipe&) = delete;
    IdlePipe& operator=(const IdlePipe&) = delete;

    /// Waits for a byte that never comes; returns only when the pipe could not be created.
    long BlockInRead() const
    {
        char byte = 0;
        return ::read(ends[0], &byte, 1);
    }

private:
    int ends[2];
};

} // namespace VantrelTest
