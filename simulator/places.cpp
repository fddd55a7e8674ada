#include "simulator/places.h"

#include <filesystem>
#include <set>

namespace spectralsim {

namespace {

namespace fs = std::filesystem;
using Arguments = std::vector<std::string>;

void append(Arguments* all, std::initializer_list<std::string> more) {
  all->insert(all->end(), more);
}

// Binds an entry of a folder that a folder in memory stands in for. Links are made anew.
void bind_entry(const fs::path& entry, const std::string& tmp, Arguments* arguments) {
  std::error_code error;
  if (entry == "/proc") {
    append(arguments, {"--proc", "/proc"});
  } else if (fs::is_symlink(entry, error)) {
    append(arguments, {"--symlink", fs::read_symlink(entry), entry});
  } else {
    append(arguments, {"--dev-bind-try", entry == "/tmp" ? tmp : entry.string(), entry});
  }
}

void bind_entries(const fs::path& folder, const std::string& tmp, Arguments* arguments) {
  std::set<fs::path> entries;  // in the same order each time
  for (const fs::directory_entry& entry : fs::directory_iterator(folder)) entries.insert(entry);
  for (const fs::path& entry : entries) bind_entry(entry, tmp, arguments);
}

// Makes the folders above `file` that are not there yet, below `folder`; each is made once.
void make_folders(const fs::path& folder, const fs::path& file, std::set<fs::path>* made,
                  Arguments* arguments) {
  fs::path parent = folder;
  for (const fs::path& name : file.lexically_relative(folder).parent_path()) {
    parent /= name;
    if (made->insert(parent).second) append(arguments, {"--perms", "0755", "--dir", parent});
  }
}

// A path with its deepest folder that exists, whose links are resolved.
struct Split {
  fs::path folder;
  fs::path rest;
};

Split split(const fs::path& path) {
  fs::path folder = path.parent_path();
  std::error_code error;
  while (!fs::is_directory(folder, error)) folder = folder.parent_path();
  return {fs::canonical(folder), path.lexically_relative(folder)};
}

}  // namespace

Arguments root_arguments(const std::vector<Place>& places, const std::string& nodes,
                         const std::string& tmp) {
  std::set<fs::path> replaced;  // a folder comes before the folders in it
  std::set<fs::path> made;
  Arguments binds;
  for (const Place& place : places) {
    const auto [folder, rest] = split(place.path);
    if (!fs::exists(place.path) && folder != "/") replaced.insert(folder);
    make_folders(folder, folder / rest, &made, &binds);
    append(&binds, {"--bind", nodes + "/" + place.file, folder / rest});
  }
  Arguments arguments;
  bind_entries("/", tmp, &arguments);
  for (const fs::path& folder : replaced) {
    append(&arguments, {"--tmpfs", folder});
    bind_entries(folder, tmp, &arguments);
  }
  arguments.insert(arguments.end(), binds.begin(), binds.end());
  return arguments;
}

}  // namespace spectralsim
