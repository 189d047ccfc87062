#pragma once

#include <map>
#include <string>

/// A pipe, or a terminal, that a program writes into.
struct Stream
{
    int ours;   ///< where it is read
    int theirs; ///< where it is written to
};

/// Makes a terminal of so many columns; 0: a pipe. No program that is started inherits it.
Stream makeStream(int columns);

/// Gives this process the environment in which the tests look at terminals, with these changes.
void useTestEnvironment(std::map<std::string, std::string> const& changes = {});

/// Another file in the place of a standard descriptor of this process for as long as it lives.
class StandardDescriptor
{
public:
    /// Takes over `other`.
    StandardDescriptor(int descriptor, int other);
    ~StandardDescriptor();
    StandardDescriptor(StandardDescriptor const&) = delete;
    StandardDescriptor& operator=(StandardDescriptor const&) = delete;

private:
    int const m_descriptor;
    int const m_before;
};

/// Runs `work` and returns what it wrote to a standard descriptor of this process, which is a terminal of so many
/// columns meanwhile; 0: a pipe. There is room for a few KiB.
template <class Work>
std::string writtenTo(int descriptor, int columns, Work const& work);

/// Reads a stream to its end, closes it and returns what was in it. Nobody may have it open for writing.
std::string readToEnd(int descriptor);

template <class Work>
std::string writtenTo(int descriptor, int columns, Work const& work)
{
    Stream const stream = makeStream(columns);
    {
        StandardDescriptor const replaced(descriptor, stream.theirs);
        work();
    }
    return readToEnd(stream.ours);
}
