#pragma once

#include <db/Export.h>

#include <pthread.h>

#include <sstream>
#include <string>

/// The console log of all layers: whole lines on standard output (std::cout), one at a time.
///
/// A line reads, for example, "[DEBUG] FDB::createDb() Create RDB File: /data/f.db": severity, tag of the layer, name
/// of the calling function, message. It is formatted in a stream of its own, so the application's global locale and the
/// flags of std::cout do not change it. It is written and flushed while `mutex` is held.
///
/// Threads: any thread may call any operation at any time, also before main and after static objects are destroyed.
///
/// Failures: exceptions of a stream or an allocation pass through; the mutex is then free again.
class FIRAIM_EXPORT LogUtil
{
public:
    /// A pthread mutex that needs no construction and no destruction at run time.
    class Mutex
    {
    public:
        constexpr Mutex() noexcept = default;
        Mutex(Mutex const&) = delete;
        Mutex& operator=(Mutex const&) = delete;

        /// Waits for the mutex and takes it.
        void lock() { pthread_mutex_lock(&m_mutex); }
        /// Releases the mutex.
        void unlock() { pthread_mutex_unlock(&m_mutex); }

    private:
        pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    };

    /// The severity, which is the first word of a line.
    enum Severity
    {
        SEVERITY_DEBUG,
        SEVERITY_INFO,
        SEVERITY_WARNING,
        SEVERITY_ERROR
    };

    /// Held while one line is written, never during a database call and never recursively. An application that writes
    /// to standard output itself may hold it for its own lines.
    static Mutex mutex;

    /// Writes one line of the form above. `tag` is "FDB" or "SQL3", `function` the plain name of the calling function.
    /// The pieces of the message are written without separators, integers in decimal.
    template <class... Pieces>
    static void write(Severity severity, char const* tag, char const* function, Pieces const&... message)
    {
        Line line(severity, tag, function);
        static_cast<void>((line.stream << ... << message)); // A message may be empty.
        line.write();
    }

    /// Writes `line` and a line end unchanged, and flushes.
    static void writeLine(std::string const& line);

private:
    /// A line under construction. Code that does not depend on the message is compiled once, not for each message.
    struct FIRAIM_EXPORT Line
    {
        Line(Severity severity, char const* tag, char const* function);
        ~Line();
        Line(Line const&) = delete;
        Line& operator=(Line const&) = delete;

        void write() const;

        std::ostringstream stream;
    };
};

namespace SqlTblUtil
{

/// Reports a value that the table mapping could not convert: one line on standard output, `message`, a blank and
/// `detail`, under LogUtil::mutex. `message` begins with its own severity.
FIRAIM_EXPORT void printError(char const* message, std::string const& detail);

} // namespace SqlTblUtil
