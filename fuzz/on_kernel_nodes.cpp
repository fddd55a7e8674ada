#include "fuzz/on_kernel_nodes.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "fuzz/support.h"
#include "simulator/kernel_nodes.h"
#include "simulator/places.h"

namespace fuzz {

namespace {

namespace fs = std::filesystem;
using spectralsim::FuseNodes;
using spectralsim::Phone;
using spectralsim::Place;

constexpr int kSkippedExit = 77;
constexpr char kInsideVariable[] = "FUZZ_PLACES";
constexpr char kLibraryPath[] = "/vendor/lib64/libzelk_flicker.so";
constexpr char kNodesFolder[] = "/dev/nodes";  // in the memory that stands for /dev there

// Makes an empty file for each place, and the analysis library, in a folder.
std::vector<Place> make_files(const std::string& folder) {
  Phone phone;
  phone.factory_file("").remove_analysis_library();
  std::vector<Place> places = FuseNodes(&phone, {getuid(), getgid()}).places();
  for (const Place& place : places) std::ofstream(folder + "/" + place.file);
  const fs::path program = fs::read_symlink("/proc/self/exe");
  fs::copy_file(program.parent_path() / "libflicker_analysis.so", folder + "/analysis");
  places.push_back({"analysis", kLibraryPath});
  return places;
}

void mount_or_abort(const char* source, const std::string& target, const char* type,
                    unsigned long flags, const std::string& data) {
  const bool mounted = mount(source, target.c_str(), type, flags, data.c_str()) == 0;
  if (!mounted) std::perror(target.c_str());
  require(mounted, "the nodes are mounted");
}

}  // namespace

void enter_places(char** arguments) {
  if (std::getenv(kInsideVariable) != nullptr) {
    mkdir(kNodesFolder, 0755);
    std::atexit([] { fs::remove_all(std::getenv(kInsideVariable)); });
    return;
  }
  std::string why_not = spectralsim::KernelNodes::why_not();
  if (why_not.empty() && getuid() != 0) why_not = "only root may mount them here";
  if (!why_not.empty()) {
    std::printf("no kernel nodes here: %s\n", why_not.c_str());
    std::exit(kSkippedExit);
  }
  char folder[] = "/tmp/fuzz.XXXXXX";
  require(mkdtemp(folder) != nullptr, "there is a folder for the places");
  std::vector<std::string> command = {"bwrap", "--die-with-parent"};
  for (const std::string& each : spectralsim::root_arguments(make_files(folder), folder, "/tmp")) {
    command.push_back(each);
  }
  const std::string program = fs::read_symlink("/proc/self/exe");
  command.insert(command.end(), {"--setenv", kInsideVariable, folder, "--", program});
  for (char** argument = arguments + 1; *argument != nullptr; ++argument) {
    command.emplace_back(*argument);
  }
  std::vector<char*> pointers;
  for (std::string& each : command) pointers.push_back(each.data());
  pointers.push_back(nullptr);
  execvp(pointers[0], pointers.data());
  std::perror("bwrap");
  std::exit(1);
}

OnKernelNodes::OnKernelNodes(Phone* phone) {
  phone->clock().set_virtual(false);
  phone->factory_file("").remove_analysis_library();
  m_nodes = std::make_unique<FuseNodes>(phone, spectralsim::Owner{getuid(), getgid()});
  const int fuse = open("/dev/fuse", O_RDWR | O_CLOEXEC);
  mount_or_abort("nodes", kNodesFolder, "fuse.spectralsim", MS_NOSUID | MS_NODEV,
                 FuseNodes::mount_data(fuse));
  m_nodes->serve(fuse);
  for (const Place& place : m_nodes->places()) {
    const std::string node = std::string(kNodesFolder) + "/" + place.file;
    mount_or_abort(node.c_str(), place.path, nullptr, MS_BIND, "");
  }
}

OnKernelNodes::~OnKernelNodes() {
  for (const Place& place : m_nodes->places()) umount2(place.path.c_str(), MNT_DETACH);
  umount2(kNodesFolder, MNT_DETACH);
}

}  // namespace fuzz
