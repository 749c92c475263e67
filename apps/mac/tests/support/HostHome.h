#pragma once

#include <boost/json/serialize.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/environment.hpp>
#include <boost/process/io.hpp>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "DevBrainProcess.h"
#include "TemporaryDirectory.h"

namespace quarl::testing {

// A temporary HOME for quarl-companion, its defaults pointing at a devbrain, with a folder where
// a Mac keeps its Messages store; and runs of the host in it.
class HostHome {
 public:
  struct Run {
    int code = 0;
    std::string log;  // standard error
  };

  explicit HostHome(const DevBrainProcess& brain) {
    std::filesystem::create_directories(config());
    std::ofstream(config() / "defaults.json") << boost::json::serialize(boost::json::object{{"QuarlApiURL", brain.baseURL()}});
    std::filesystem::create_directories(messages());
  }

  const std::filesystem::path& path() const { return home_.path(); }
  std::filesystem::path config() const { return path() / ".config" / "quarl"; }
  std::filesystem::path messages() const { return path() / "Library" / "Messages"; }
  std::filesystem::path store() const { return messages() / "chat.db"; }

  // A copy of this process's environment with this HOME, for the host.
  boost::process::environment environment() const {
    boost::process::environment copy = boost::this_process::environment();
    copy["HOME"] = path().string();
    copy["XDG_CONFIG_HOME"] = (path() / ".config").string();
    return copy;
  }

  // Runs the host with `arguments` until it exits.
  Run run(const std::vector<std::string>& arguments, const boost::process::environment& environment) const {
    boost::process::ipstream errors;
    boost::process::child host(QUARL_COMPANION_PATH, boost::process::args(arguments), environment,
                               boost::process::std_out > boost::process::null, boost::process::std_err > errors);
    Run run;
    std::string line;
    while (std::getline(errors, line)) run.log += line + "\n";
    host.wait();
    run.code = host.exit_code();
    return run;
  }
  Run runOnce() const { return run({"--once"}, environment()); }

 private:
  TemporaryDirectory home_;
};

}  // namespace quarl::testing
