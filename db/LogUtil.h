#pragma once

#include <db/Export.h>

#include <pthread.h>

#include <sstream>
#include <string>

/// The console log that all layers share: whole lines on standard output (std::cout), one at a time.
///
/// A line reads, for example, "[DEBUG] FDB::createDb() Create RDB File: /data/f.db": severity, tag of the layer,
/// the writing function, message. It is composed apart from the console, so that neither the application's global
/// locale nor the flags left on std::cout change it, and is then written and flushed while `mutex` is held.
///
/// Threads: any thread may call any operation at any time, also before main and after static objects are destroyed.
/// After a failure (an exception of a stream or of an allocation, which is passed on) the mutex is free again.
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

        /// Waits for the mutex.
        void lock() { pthread_mutex_lock(&m_mutex); }
        /// Gives it back.
        void unlock() { pthread_mutex_unlock(&m_mutex); }

    private:
        pthread_mutex_t m_mutex = PTHREAD_MUTEX_INITIALIZER;
    };

    /// The first word of a line.
    enum Severity
    {
        SEVERITY_DEBUG,
        SEVERITY_INFO,
        SEVERITY_WARNING,
        SEVERITY_ERROR
    };

    /// Held while one line is written, never across a database call and never twice. An application that writes to
    /// standard output itself may hold it for its own lines.
    static Mutex mutex;

    /// Writes one line of the form above. `tag` is "FDB" or "SQL3", `function` the bare name of the calling function;
    /// the pieces of the message follow each other without separators, integers in decimal.
    template <class... Pieces>
    static void write(Severity severity, char const* tag, char const* function, Pieces const&... message)
    {
        Line line(severity, tag, function);
        static_cast<void>((line.stream << ... << message)); // A message may be empty.
        line.write();
    }

    /// Writes `line` and a line end as they are, and flushes.
    static void writeLine(std::string const& line);

private:
    /// A line that is being composed. What does not depend on the message is compiled once, and not for each message.
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

/// Reports a value that the table mapping could not convert: one line on standard output, `message`, one blank,
/// `detail`, under LogUtil::mutex. The message carries its own severity word.
FIRAIM_EXPORT void printError(char const* message, std::string const& detail);

} // namespace SqlTblUtil
