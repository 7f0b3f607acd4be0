// kyn blender-install [--blender PROGRAM]: installs the Blender add-on io_scene_kyn into the
// user's Blender and enables it. The add-on lies beside this program (share/kyn/blender,
// installed or in the build tree); Blender itself copies it into the user's add-ons directory,
// through the script install_addon.py there, so that the directory is the one that Blender
// uses, and saves the preferences with the add-on enabled. No root is needed.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include "Command.h"

namespace kyncli {

namespace {

namespace fs = std::filesystem;

const char* const kCommand = "blender-install";

// share/kyn/blender beside this program, or an empty path when the add-on is not there.
fs::path addonHome(std::string& looked) {
    std::error_code error;
    const fs::path self = fs::read_symlink("/proc/self/exe", error);
    if (error) return {};
    const fs::path home = (self.parent_path() / KYN_BLENDER_FROM_BIN).lexically_normal();
    looked = home.string();
    const bool whole = fs::is_regular_file(home / "install_addon.py", error) &&
                       fs::is_regular_file(home / "io_scene_kyn" / "__init__.py", error);
    return whole ? home : fs::path();
}

// Runs `arguments` (the program first, looked up on PATH) with its standard output, Blender's
// banner, thrown away. Answers its exit status, 127 when it could not be started.
int runProgram(const std::vector<std::string>& arguments) {
    std::vector<char*> argv;
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child < 0) return 127;
    if (child == 0) {
        const int null = open("/dev/null", O_WRONLY);
        if (null >= 0) dup2(null, STDOUT_FILENO);
        execvp(argv[0], argv.data());
        _exit(127);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0)
        if (errno != EINTR) return 127;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int run(const std::string& blender) {
    std::string looked;
    const fs::path home = addonHome(looked);
    if (home.empty()) {
        complain(kCommand, "",
                 "the Blender add-on is not beside this kyn (looked in " +
                     (looked.empty() ? std::string("share/kyn/blender") : looked) + ")",
                 "build with the Python package (KYN_BUILD_PYTHON), or install with "
                 "cmake --install");
        return 1;
    }
    const int status =
        runProgram({blender, "-b", "--python-exit-code", "1", "--python",
                    (home / "install_addon.py").string(), "--", (home / "io_scene_kyn").string()});
    if (status == 0) return 0;
    if (status == 127)
        complain(kCommand, "", "cannot run '" + blender + "'",
                 "install Blender (Debian: blender), or name the program with --blender");
    else
        complain(kCommand, "",
                 "Blender did not install the add-on (exit status " + std::to_string(status) + ")",
                 "see its messages above");
    return 1;
}

}  // namespace

void addBlenderInstall(CLI::App& program, int& status) {
    auto* command = program.add_subcommand(
        kCommand,
        "Installs the Blender add-on io_scene_kyn (File > Import > kyn cache) into the user's "
        "Blender and enables it: Blender copies it into its add-ons directory, notes where the "
        "kyn Python package is, and saves its preferences. Needs no root.");
    auto blender = std::make_shared<std::string>("blender");
    command->add_option("--blender", *blender, "The Blender program (default: blender on PATH)");
    command->footer("Exit status: 0 installed, 1 not installed, 2 wrong usage.");
    command->callback([blender, &status] { status = run(*blender); });
}

}  // namespace kyncli
