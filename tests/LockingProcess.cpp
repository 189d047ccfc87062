#include "LockingProcess.h"

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <sys/wait.h>
#include <unistd.h>

LockingProcess::LockingProcess(std::string const& path, std::string const& statements)
{
    int ready[2];
    EXPECT_EQ(pipe(ready), 0);
    EXPECT_EQ(pipe(m_release), 0);
    m_pid = fork();
    if (m_pid == 0)
    {
        close(m_release[1]);
        sqlite3* db = nullptr;
        sqlite3_open(path.c_str(), &db);
        int const code = sqlite3_exec(db, statements.c_str(), nullptr, nullptr, nullptr);
        char byte = code == SQLITE_OK ? '+' : '-';
        bool const isTold = write(ready[1], &byte, 1) == 1;
        while (isTold && read(m_release[0], &byte, 1) > 0)
        {
        }
        _exit(0);
    }
    close(m_release[0]);
    char byte = 0;
    EXPECT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_EQ(byte, '+') << "the other process could not lock the file";
    close(ready[0]);
    close(ready[1]);
}

LockingProcess::~LockingProcess()
{
    if (m_pid > 0)
    {
        release();
    }
}

void LockingProcess::release()
{
    close(m_release[1]);
    EXPECT_EQ(waitpid(m_pid, nullptr, 0), m_pid);
    m_pid = -1;
}
