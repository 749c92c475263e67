#pragma once

#include <boost/json/serialize.hpp>
#include <boost/process/args.hpp>
#include <boost/process/child.hpp>
#include <boost/process/env.hpp>
#include <boost/process/environment.hpp>
#include <boost/process/io.hpp>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "DevBrainAdmin.h"
#include "DevBrainProcess.h"
#include "TemporaryDirectory.h"

namespace quarl::testing {

// Waits up to `limit` for `done`, asking every 10 ms.
inline bool eventually(const std::function<bool()>& done, std::chrono::milliseconds limit = std::chrono::seconds(10)) {
  using namespace std::chrono_literals;
  for (auto waited = 0ms; !done(); waited += 10ms) {
    if (waited >= limit) return false;
    std::this_thread::sleep_for(10ms);
  }
  return true;
}

// A temporary HOME for quarl-companion, its defaults pointing at a devbrain, with a folder where
// a Mac keeps its Messages store; and runs of the host in it.
class HostHome {
 public:
  // How a run ended: its exit code, and what it wrote to standard error.
  struct Run { int code = 0; std::string log; };

  explicit HostHome(const DevBrainProcess& brain) : baseURL_(brain.baseURL()) {
    std::filesystem::create_directories(config());
    std::ofstream(config() / "defaults.json") << boost::json::serialize(boost::json::object{{"QuarlApiURL", brain.baseURL()}});
    std::filesystem::create_directories(messages());
  }

  // Signs this home in as a device devbrain issued, its defaults pointing at devbrain with
  // `defaults` besides.
  void signIn(DevBrainAdmin& admin, boost::json::object defaults = {}) {
    const auto device = admin.post("/admin/devices").as_object();
    defaults["QuarlApiURL"] = baseURL_;
    defaults["QuarlDeviceId"] = device.at("deviceId");
    std::ofstream(config() / "defaults.json") << boost::json::serialize(defaults);
    std::ofstream(config() / "keychain.json") << boost::json::serialize(
        boost::json::object{{"accessToken", device.at("accessToken")}, {"refreshToken", device.at("refreshToken")}});
    std::filesystem::permissions(config() / "keychain.json",
                                 std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
  }

  const std::filesystem::path& path() const { return home_.path(); }
  std::filesystem::path config() const { return path() / ".config" / "quarl"; }
  std::filesystem::path messages() const { return path() / "Library" / "Messages"; }
  std::filesystem::path store() const { return messages() / "chat.db"; }

  // A copy of this process's environment with this HOME, for the host; without DISPLAY, so that
  // a host started from a desktop does not operate it unless a test gives it one.
  boost::process::environment environment() const {
    boost::process::environment copy = boost::this_process::environment();
    copy.erase("DISPLAY");
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
  // Runs the host with `arguments` until it exits; what it printed on standard output.
  std::string printed(const std::vector<std::string>& arguments) const {
    boost::process::ipstream output;
    boost::process::child host(QUARL_COMPANION_PATH, boost::process::args(arguments), environment(),
                               boost::process::std_out > output, boost::process::std_err > boost::process::null);
    std::string text, line;
    while (std::getline(output, line)) text += line + "\n";
    host.wait();
    return text;
  }
  // Starts the host until it is stopped, its standard error going to `log`.
  boost::process::child start(const boost::process::environment& environment, const std::filesystem::path& log) const {
    return boost::process::child(QUARL_COMPANION_PATH, environment, boost::process::std_out > boost::process::null,
                                 boost::process::std_err > log.string());
  }

 private:
  std::string baseURL_;
  TemporaryDirectory home_;
};

}  // namespace quarl::testing
