// The action "router": an operator's changes to a router that is read from a file, one command at a time.
//
// Commands change the model until the file is loaded again, and need permission to (KvActionContext). Texts
// are for people, without a trailing line break. All but "reload" and "show" end at once. Main thread.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/core/base/status.h"
#include "platform/router/model/router.h"
#include "platform/store/tree/actions.h"
#include "platform/store/tree/kvtree.h"

class RouterAction {
 public:
  using Reload = std::function<void(KvActionEnd)>;
  // `reload` loads the file again and calls its argument, if that is not null, with the result.
  RouterAction(router::Router* model, Reload reload);

  // words[0] is the action's name, words[1] the command; without a command the help is the answer.
  // kStatusAccess when the peer may not change, kStatusInvalid for an unknown command or bad arguments,
  // kStatusInProgress for a reload, kStatusUnfinished for a step of "show", else the model's answer; *text
  // has the result of all but a reload.
  Status run(const KvActionContext& context, const std::vector<std::string>& words, std::string* text);

 private:
  router::Router* model_;
  Reload reload_;
};
