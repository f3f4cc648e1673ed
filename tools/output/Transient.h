// SPDX-License-Identifier: GPL-3.0-or-later
#pragma once

#include <filesystem>
#include <functional>

namespace veltra {

/** A file or folder that must not outlive its use: removed with everything in it when the object is destroyed,
    and also when a signal ends the program (see SignalWatch).
*/
class Transient
{
public:
    /** @param make  makes the file or folder and returns its path. The program cannot be ended by a signal
                     between the two, so that nothing is left behind.
        @throws      what make throws
    */
    explicit Transient (const std::function<std::filesystem::path()>& make);
    ~Transient();

    Transient (const Transient&) = delete;
    Transient& operator= (const Transient&) = delete;

    const std::filesystem::path& path() const noexcept { return path_; }

    /** Renames it and thereby ends its transience.
        @throws  std::filesystem::filesystem_error, after which it is as transient as before
    */
    void renameTo (const std::filesystem::path& target);

    /** Removes all that exist. For the end of the program by a signal: when it returns no object can be made
        any more, and whoever tries waits for ever. */
    static void removeAllForGood() noexcept;

private:
    std::filesystem::path path_;
};

/** A new folder in the system's folder for temporary files that only this user can open. Removes the folders of earlier
    runs that were killed.
    @throws  Failure (kExitOutput)
*/
std::filesystem::path makePrivateFolder();

}
