#pragma once

#include <functional>

/// While the object lives, calls `onOpen` before this thread opens a file, in any library. The open fails with the
/// `errno` that `onOpen` returns, and proceeds at 0. Files that `onOpen` itself opens do not cause a call.
class OpenHook
{
public:
    explicit OpenHook(std::function<int()> onOpen);
    ~OpenHook();
    OpenHook(OpenHook const&) = delete;
    OpenHook& operator=(OpenHook const&) = delete;

    int call();

private:
    std::function<int()> const m_onOpen;
    bool m_isCalled = false;
};
