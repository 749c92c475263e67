#pragma once

#include <boost/process/child.hpp>
#include <boost/process/io.hpp>
#include <boost/process/pipe.hpp>
#include <string>

namespace quarl::testing {

// A real devbrain on a free loopback port, stopped when this goes away.
class DevBrainProcess {
 public:
  DevBrainProcess() : child_(QUARL_DEVBRAIN_PATH, "--port", "0", boost::process::std_out > output_) {
    std::getline(output_, baseURL_);
  }
  ~DevBrainProcess() {
    std::error_code ignored;
    child_.terminate(ignored);
  }
  const std::string& baseURL() const { return baseURL_; }

 private:
  boost::process::ipstream output_;
  boost::process::child child_;
  std::string baseURL_;
};

}  // namespace quarl::testing
