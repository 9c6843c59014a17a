// Reading the restart file, and replacing it as a whole.
#include "admin/scan/restart.hpp"

#include <fcntl.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

#include "admin/inspect/inspect.hpp"
#include "admin/report/report.hpp"
#include "admin/status.hpp"

namespace vdadm::scan {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char *format_name = "vdadm scrub restart 1";

Json to_json(const Saved &disk) {
  const State &state = disk.state;
  Json bad = Json::array();
  for (const auto &[where, error] : state.bad.all()) bad.push_back({where.begin, where.end, error});
  return {{"name", disk.name},
          {"stable_names", disk.stable_names},
          {"inode", state.facts.inode},
          {"size", state.facts.size},
          {"sector_size", state.facts.sector_size},
          {"range", disk.range},
          {"begin", state.facts.range.begin},
          {"end", state.facts.range.end},
          {"position", state.position},
          {"finished", disk.finished},
          {"recovered", state.recovered},
          {"bad_ranges", bad}};
}

Saved from_json(const Json &json) {
  Saved disk;
  disk.name = json.at("name").get<std::string>();
  disk.stable_names = json.at("stable_names").get<std::vector<std::string>>();
  disk.range = json.at("range").get<std::string>();
  disk.finished = json.at("finished").get<bool>();
  State &state = disk.state;
  state.facts.inode = json.at("inode").get<uint64_t>();
  state.facts.size = json.at("size").get<uint64_t>();
  state.facts.sector_size = json.at("sector_size").get<uint64_t>();
  state.facts.range = {json.at("begin").get<uint64_t>(), json.at("end").get<uint64_t>()};
  state.position = json.at("position").get<uint64_t>();
  state.recovered = json.at("recovered").get<uint64_t>();
  for (const Json &bad : json.at("bad_ranges")) {
    state.bad.add({{bad.at(0).get<uint64_t>(), bad.at(1).get<uint64_t>()}, bad.at(2).get<int>()});
  }
  state.opened = true;
  return disk;
}

[[noreturn]] void refuse(const std::string &path, int error) {
  throw Failure(
      fmt::format("The restart file cannot be written. {}", inspect::system_sentence(path, error)));
}

/// On stable storage, under a name of its own.
void write_new(const std::string &path, const std::string &content) {
  inspect::Descriptor file(open64(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  if (!file) refuse(path, errno);
  for (size_t done = 0; done < content.size();) {
    const ssize_t written = ::write(file.get(), content.data() + done, content.size() - done);
    if (written <= 0) refuse(path, written < 0 ? errno : ENOSPC);
    done += static_cast<size_t>(written);
  }
  if (fsync(file.get()) != 0 || !file.close()) refuse(path, errno);
}

}  // namespace

RestartFile::RestartFile(std::string path) : path_(std::move(path)) {
  std::error_code none;
  if (!std::filesystem::exists(path_, none)) return;
  try {
    std::ifstream file(path_);
    const Json all = Json::parse(file);
    if (all.at("format") != format_name) throw std::runtime_error("another format");
    for (const Json &disk : all.at("disks")) disks_.push_back(from_json(disk));
  } catch (const std::exception &) {
    throw Failure(
        fmt::format("{} is no restart file of vdadm scrub, or cannot be read: name another "
                    "file, or remove it to begin anew.",
                    path_),
        refused);
  }
}

std::optional<Saved> RestartFile::find(const std::string &name) const {
  const auto at = std::find_if(disks_.begin(), disks_.end(),
                               [&](const Saved &disk) { return disk.name == name; });
  return at == disks_.end() ? std::nullopt : std::optional(*at);
}

void RestartFile::keep(const Saved &saved) {
  const auto at = std::find_if(disks_.begin(), disks_.end(),
                               [&](const Saved &disk) { return disk.name == saved.name; });
  *(at == disks_.end() ? disks_.insert(at, Saved{}) : at) = saved;
  write();
}

void RestartFile::write() const {
  Json disks = Json::array();
  for (const Saved &disk : disks_) disks.push_back(to_json(disk));
  const Json all = {{"format", format_name}, {"disks", disks}};
  const std::string new_path = path_ + ".new";
  try {
    write_new(new_path, all.dump(2) + "\n");
    if (std::rename(new_path.c_str(), path_.c_str()) != 0) refuse(path_, errno);
  } catch (const Failure &) {
    unlink(new_path.c_str());
    throw;
  }
  std::filesystem::path folder = std::filesystem::path(path_).parent_path();
  if (folder.empty()) folder = ".";
  const inspect::Descriptor directory(open64(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!directory || fsync(directory.get()) != 0) refuse(folder.string(), errno);
}

void RestartFile::remove_when_finished() const {
  const auto finished = [](const Saved &disk) { return disk.finished; };
  if (std::all_of(disks_.begin(), disks_.end(), finished)) unlink(path_.c_str());
}

}  // namespace vdadm::scan
