#pragma once

#include "TestSupport.h"

#include <string>

namespace soak
{

/// A file system for the fault database, small where mounting is allowed, with a folder that can be exchanged like a
/// card. The database, its journal and its log lie in that folder.
class Stage
{
public:
    Stage();
    ~Stage();
    Stage(Stage const&) = delete;
    Stage& operator=(Stage const&) = delete;

    bool isSmall() const { return m_refusal.empty(); }
    /// Why there is no small file system.
    std::string const& refusal() const { return m_refusal; }

    std::string path() const { return m_root.file("now/faults.db"); }
    std::string pulledPath() const { return m_root.file("pulled/faults.db"); }

    /// Puts another folder in the place of the present one, in one step where the file system can. It is empty, or has
    /// an empty fault database with a write-ahead log.
    void pull(bool isWal);
    void removePulled();

    void fill();
    void free();
    /// Whether a quarter of the file system is left.
    bool hasRoom() const;

    /// Copies everything to a folder that stays, and returns that.
    std::string keep() const;

private:
    void makeFolder(std::string const& path, bool isWal) const;

    TempDir m_root;
    std::string m_refusal;
};

} // namespace soak
