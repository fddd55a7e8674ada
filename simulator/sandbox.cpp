#include "simulator/sandbox.h"

#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "simulator/fuse_nodes.h"
#include "simulator/messages.h"

namespace spectralsim {

namespace {

constexpr char kFusePath[] = "/dev/fuse";
constexpr char kBubblewrap[] = "bwrap";
// The folders of the sandbox's builder, in memory over its /tmp.
constexpr char kBuilderFolder[] = "/tmp";
constexpr char kNodesFolder[] = "/tmp/nodes";
constexpr char kOuterTmp[] = "/tmp/tmp";
constexpr int kSignalExit = 128;  // plus the signal's number, as a shell reports a signal
// The sandbox sends a descriptor, and this process the command's number, with one byte each.
constexpr char kFuseByte = 'f';
constexpr char kCommandByte = 'c';
constexpr char kFailureByte = '!';

// The signals that are passed on to the command. The others stop, continue or end this process.
sigset_t signals_to_pass_on() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int signal : {SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGSEGV, SIGBUS, SIGILL, SIGFPE,
                           SIGABRT, SIGTRAP, SIGSYS}) {
    sigdelset(&signals, signal);
  }
  return signals;
}

void write_file(const char* path, const std::string& text) {
  std::ofstream file(path);
  if (!(file << text) || !file.flush()) fail(path);
}

// Enters a mount namespace of its own; without the right to do so, in a user namespace of its own
// in which this user keeps his number.
void enter_namespace() {
  if (unshare(CLONE_NEWNS) != 0) {
    const std::string user = std::to_string(getuid());
    const std::string group = std::to_string(getgid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNS) != 0) fail("a mount namespace is refused");
    write_file("/proc/self/setgroups", "deny");
    write_file("/proc/self/uid_map", user + " " + user + " 1");
    write_file("/proc/self/gid_map", group + " " + group + " 1");
  }
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) fail("mount /");
}

// Mounts the FUSE file system where nobody outside sees it, and returns its descriptor.
int mount_nodes() {
  const int fuse = open(kFusePath, O_RDWR | O_CLOEXEC);
  if (fuse < 0) fail(kFusePath);
  const int outer_tmp =
      open_tree(AT_FDCWD, kBuilderFolder, OPEN_TREE_CLONE | AT_RECURSIVE | OPEN_TREE_CLOEXEC);
  if (outer_tmp < 0) fail(kBuilderFolder);
  constexpr unsigned long kFlags = MS_NOSUID | MS_NODEV;
  if (mount("spectralsim", kBuilderFolder, "tmpfs", kFlags, "mode=0755") != 0) fail("mount tmpfs");
  for (const char* folder : {kNodesFolder, kOuterTmp}) {
    if (mkdir(folder, 0755) != 0) fail(folder);
  }
  if (move_mount(outer_tmp, "", AT_FDCWD, kOuterTmp, MOVE_MOUNT_F_EMPTY_PATH) != 0) {
    fail("mount /tmp");
  }
  close(outer_tmp);
  const std::string data = FuseNodes::mount_data(fuse);
  if (mount("spectralsim", kNodesFolder, "fuse.spectralsim", kFlags, data.c_str()) != 0) {
    fail("mount fuse");
  }
  return fuse;
}

// The program with the entry of the sandbox: spectralsim, which is this program or stands beside
// it.
std::string entry_program() {
  const std::filesystem::path program = std::filesystem::read_symlink("/proc/self/exe");
  return program.parent_path() / "spectralsim";
}

// Returns the descriptor of a file with these texts, from which bubblewrap reads arguments: there
// is one for each entry of /dev.
int file_of_arguments(const std::vector<std::string>& arguments) {
  const int file = memfd_create("arguments", 0);
  if (file < 0) fail("memfd_create");
  for (const std::string& argument : arguments) {
    const auto size = static_cast<ssize_t>(argument.size() + 1);
    if (write(file, argument.c_str(), argument.size() + 1) != size) fail("write");
  }
  if (lseek(file, 0, SEEK_SET) != 0) fail("lseek");
  return file;
}

std::vector<std::string> bubblewrap_arguments(int root_arguments_file, const Command& command,
                                              const std::string& folder, int socket) {
  std::vector<std::string> arguments = {kBubblewrap, "--die-with-parent", "--unshare-pid", "--args",
                                        std::to_string(root_arguments_file)};
  if (!folder.empty()) arguments.insert(arguments.end(), {"--chdir", folder});
  arguments.insert(arguments.end(),
                   {"--", entry_program(), Sandbox::kEntry, std::to_string(socket)});
  for (const std::string& argument : command.arguments) arguments.push_back(argument);
  return arguments;
}

std::vector<char*> pointers(std::vector<std::string>* texts) {
  std::vector<char*> list;
  for (std::string& text : *texts) list.push_back(text.data());
  list.push_back(nullptr);
  return list;
}

// Builds the sandbox in this process, a child that becomes bubblewrap.
void build(const std::vector<Place>& places, const Command& command, int socket) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  std::error_code error;
  const std::string folder = std::filesystem::current_path(error);
  enter_namespace();
  const int root = file_of_arguments(root_arguments(places, kNodesFolder, kOuterTmp));
  std::vector<std::string> arguments = bubblewrap_arguments(root, command, folder, socket);
  const int fuse = mount_nodes();
  send_message(socket, kFuseByte, "", fuse);
  close(fuse);
  for (const std::string& variable : command.environment) {
    const std::size_t end = variable.find('=');
    setenv(variable.substr(0, end).c_str(), variable.c_str() + end + 1, 1);
  }
  if (dup2(command.input, 0) < 0 || dup2(command.output, 1) < 0) fail("dup2");
  execvp(kBubblewrap, pointers(&arguments).data());
  fail(kBubblewrap);
}

bool is_in_path(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string rest = path != nullptr ? path : "/usr/bin:/bin";
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find(':'), rest.size());
    if (access((rest.substr(0, end) + "/" + program).c_str(), X_OK) == 0) return true;
    rest.erase(0, end + 1);
  }
  return false;
}

}  // namespace

std::string Sandbox::why_not() {
  const int fuse = open(kFusePath, O_RDWR | O_CLOEXEC);
  if (fuse < 0) {
    const int error = errno;
    std::string why = std::string(kFusePath) + ": " + std::strerror(error);
    if (error == ENOENT) why += " (modprobe fuse; Debian package fuse3)";
    if (error == EACCES) why += " (it is root's alone on this machine; run as root)";
    return why;
  }
  close(fuse);
  return is_in_path(kBubblewrap) ? "" : "there is no bwrap (Debian package bubblewrap)";
}

Sandbox::Sandbox(const std::vector<Place>& places, const Command& command) {
  int sockets[2] = {};
  if (socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets) != 0) fail("socketpair");
  m_socket = sockets[0];
  fcntl(m_socket, F_SETFD, FD_CLOEXEC);
  const int credentials = 1;
  setsockopt(m_socket, SOL_SOCKET, SO_PASSCRED, &credentials, sizeof credentials);
  const sigset_t signals = signals_to_pass_on();
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  signal(SIGCHLD, SIG_DFL);
  m_bubblewrap = fork();
  if (m_bubblewrap < 0) fail("fork");
  if (m_bubblewrap == 0) {
    try {
      close(m_socket);
      build(places, command, sockets[1]);
    } catch (const std::exception& error) {
      send_message(sockets[1], kFailureByte, error.what());
    }
    _exit(1);
  }
  close(sockets[1]);
  const Message message = receive_message(m_socket);
  m_fuse = message.descriptor;
  if (m_fuse < 0) {
    throw std::runtime_error(message.text.empty() ? "the sandbox's builder has ended"
                                                  : message.text.substr(1));
  }
}

Sandbox::~Sandbox() {
  if (m_fuse >= 0) close(m_fuse);
  if (m_bubblewrap > 0) {
    kill(m_bubblewrap, SIGKILL);
    waitpid(m_bubblewrap, nullptr, 0);
  }
  close(m_socket);
}

int Sandbox::take_fuse() {
  const int fuse = m_fuse;
  m_fuse = -1;
  return fuse;
}

void Sandbox::pass_on(int signal) const {
  if (m_command > 0) kill(m_command, signal);
}

int Sandbox::wait() {
  const Message message = receive_message(m_socket);
  if (message.text.empty()) throw std::runtime_error("bubblewrap could not start the command");
  if (message.text[0] == kFailureByte) throw std::runtime_error(message.text.substr(1));
  m_command = message.sender;
  const sigset_t signals = signals_to_pass_on();
  for (;;) {
    int status = 0;
    if (waitpid(m_bubblewrap, &status, WNOHANG) == m_bubblewrap) {
      m_bubblewrap = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalExit + WTERMSIG(status);
    }
    siginfo_t info = {};
    const int signal = sigwaitinfo(&signals, &info);
    // What the terminal sends, the kernel sends to the command as well.
    if (signal > 0 && signal != SIGCHLD && info.si_code <= 0) pass_on(signal);
  }
}

void Sandbox::enter(const char* socket_number) {
  const int socket = std::atoi(socket_number);
  fcntl(socket, F_SETFD, FD_CLOEXEC);
  send_message(socket, kCommandByte);
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, nullptr);
}

}  // namespace spectralsim
