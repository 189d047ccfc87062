#pragma once

#include <string>

/// Another process that holds an exclusive lock on the file until `release`, or while this object lives.
class LockingProcess
{
public:
    /// Other `statements` than BEGIN EXCLUSIVE leave another transaction open.
    explicit LockingProcess(std::string const& path, std::string const& statements = "BEGIN EXCLUSIVE");
    ~LockingProcess();
    LockingProcess(LockingProcess const&) = delete;
    LockingProcess& operator=(LockingProcess const&) = delete;

    /// Ends the process. Call it at most once.
    void release();

private:
    int m_release[2];
    int m_pid = -1;
};
