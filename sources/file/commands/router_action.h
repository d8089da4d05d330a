// The action "router": an operator's changes of a router that comes from a file, one command at a time.
//
// Changes are made in the model and last until the file is loaded the next time. Commands that change
// something need the right to (KvActionContext). Texts are for people, without a trailing line break. Main
// thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"

class RouterAction {
 public:
  // `reload` loads the file again and says in its argument what came of it.
  RouterAction(router::Router* model, std::function<Status(std::string*)> reload);

  // words[0] is the action's name, words[1] the command; without a command the help is the answer.
  // kStatusAccess when the peer may not change, kStatusInvalid for an unknown command or bad arguments, else
  // the model's answer; *text says in every case what happened.
  Status run(bool may_change, const std::vector<std::string>& words, std::string* text);

 private:
  router::Router* model_;
  std::function<Status(std::string*)> reload_;
};
