// Shell: the one place where the daemon runs shell commands.
//
// Every command line of the daemon goes through system() or capture() (popen). Tests
// install a Backend that records the lines instead of running them. quote() makes caller text
// safe to embed in a command line as one single-quoted shell word.
//
// A command inherits every descriptor of the daemon that is not close-on-exec, and may outlive
// the daemon: a listening socket it held would keep the restarted daemon from binding its port.
// Every descriptor the daemon opens is therefore close-on-exec; keepFromChildren() marks those
// that a library opens without the flag.
//
// Threading: any thread may run commands; the backend is swapped under an internal mutex and
// the calling thread keeps its own owner of the backend while a command runs.
#ifndef ZORVIK_SERVER_SHELL_H_
#define ZORVIK_SERVER_SHELL_H_

#include <memory>
#include <optional>
#include <string>

namespace zorvik {

class Shell {
 public:
  // What actually runs a command line. The default runs it with system() and popen().
  class Backend {
   public:
    virtual ~Backend() = default;
    // The status that system() returns: 0 on success.
    virtual int system(const std::string& command) = 0;
    // The whole standard output, or nothing when the command could not be started.
    virtual std::optional<std::string> capture(const std::string& command) = 0;
  };

  static int system(const std::string& command);
  static std::optional<std::string> capture(const std::string& command);

  // Logs "system command: " + command at `level` under the caller's module and line, runs it,
  // and logs "system call error" at the error level when the result is not 0.
  static int runLogged(const char* module, int line, int level, const std::string& command);

  // What captureLogged does with the line feeds of a command's output.
  enum class LineFeeds { kKeep, kAsBlanks };
  // Runs `command` through capture(), logs "system command: " + command + " ,output: " + output
  // at the info level under the caller's module and line, and returns the output; "" without a
  // log line when the command cannot be started. The exit status is not looked at.
  static std::string captureLogged(const char* module, int line, const std::string& command,
                                   LineFeeds lineFeeds);

  // Marks `fd` close-on-exec, so that no command run from now on inherits it.
  static void keepFromChildren(int fd);

  // `text` as one single-quoted shell word: each single quote inside becomes '\''.
  static std::string quote(const std::string& text);

  // Installs a backend (an empty pointer restores the real one); returns the previous one.
  static std::shared_ptr<Backend> setBackend(std::shared_ptr<Backend> backend);
};

}  // namespace zorvik

// Runs a command line through Shell::runLogged with this file's name and line.
#define ZSHELL_RUN(level, command) ZSHELL_RUN_AS(__FILE_NAME__, (level), (command))
// The same for code that logs under the name of another module it belongs to.
#define ZSHELL_RUN_AS(module, level, command) \
  ::zorvik::Shell::runLogged((module), __LINE__, (level), (command))
// Runs a command line through Shell::captureLogged with this file's name and line.
#define ZSHELL_CAPTURE(command, lineFeeds) \
  ::zorvik::Shell::captureLogged(__FILE_NAME__, __LINE__, (command), (lineFeeds))

#endif  // ZORVIK_SERVER_SHELL_H_
