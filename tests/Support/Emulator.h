#pragma once

// A cross-compiled build runs its programs under an emulator (qemu-user), since this machine's kernel does
// not run them itself. A test that starts one of them puts the emulator's command in front; the build
// hands it in as KIV_TEST_EMULATOR, its arguments separated by ';' as in CMake.

#include <sstream>
#include <string>
#include <vector>

namespace Kiv::Testing
{
/// The emulator's command and arguments; empty for a native build.
inline std::vector<std::string> EmulatorCommand()
{
    std::vector<std::string> command;
#ifdef KIV_TEST_EMULATOR
    std::istringstream list(KIV_TEST_EMULATOR);
    for (std::string word; std::getline(list, word, ';');)
    {
        if (!word.empty())
        {
            command.push_back(word);
        }
    }
#endif
    return command;
}

/// The same for a shell's command line, with a blank behind it; empty for a native build.
inline std::string EmulatorPrefix()
{
    std::string prefix;
    for (const std::string& word : EmulatorCommand())
    {
        prefix += "'" + word + "' ";
    }
    return prefix;
}

inline bool IsEmulated()
{
    return !EmulatorCommand().empty();
}
}  // namespace Kiv::Testing
