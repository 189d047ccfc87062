#pragma once

#include <map>
#include <string>

/// A pipe, or a terminal, that a program writes into.
struct Stream
{
    int readEnd;  ///< descriptor from which the test reads
    int writeEnd; ///< descriptor to which the program writes
};

/// Makes a terminal with `columns` columns, or a pipe if 0. Programs that the test starts do not inherit it.
Stream makeStream(int columns);

/// Sets the environment variables of the terminal tests in this process, with these changes.
void useTestEnvironment(std::map<std::string, std::string> const& changes = {});

/// Replaces a standard descriptor of this process while the object lives.
class StandardDescriptor
{
public:
    /// Takes ownership of `other`.
    StandardDescriptor(int descriptor, int other);
    ~StandardDescriptor();
    StandardDescriptor(StandardDescriptor const&) = delete;
    StandardDescriptor& operator=(StandardDescriptor const&) = delete;

private:
    int const m_descriptor;
    int const m_before;
};

/// Runs `work` and returns the text that it wrote to a standard descriptor of this process. Meanwhile the descriptor is
/// a terminal with `columns` columns, or a pipe if 0, with room for a few KiB.
template <class Work>
std::string writtenTo(int descriptor, int columns, Work const& work);

/// Reads a stream to its end, closes it and returns its content. All writers must be closed.
std::string readToEnd(int descriptor);

template <class Work>
std::string writtenTo(int descriptor, int columns, Work const& work)
{
    Stream const stream = makeStream(columns);
    {
        StandardDescriptor const replaced(descriptor, stream.writeEnd);
        work();
    }
    return readToEnd(stream.readEnd);
}
