// The action "router": an operator's changes to a router that is read from a file, one command at a time.
//
// Commands change the model until the file is loaded again, and need permission to (KvActionContext). Texts
// are for people, without a trailing line break. Main thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

class RouterAction {
 public:
  // `reload` loads the file again and writes the result to its argument.
  RouterAction(router::Router* model, std::function<Status(std::string*)> reload);

  // words[0] is the action's name, words[1] the command; without a command the help is the answer.
  // kStatusAccess when the peer may not change, kStatusInvalid for an unknown command or bad arguments, else
  // the model's answer; *text always has the result.
  Status run(bool may_change, const std::vector<std::string>& words, std::string* text);

 private:
  router::Router* model_;
  std::function<Status(std::string*)> reload_;
};
