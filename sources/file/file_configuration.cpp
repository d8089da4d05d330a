#include "sources/file/file_configuration.h"

#include "platform/config/owners.h"
#include "platform/config/vrf_config.h"

Status replace_file_configuration(const std::vector<KvConfigNode>& nodes, const std::string& comment,
                                  std::string* id, std::string* error) {
  const std::vector<std::string_view> of_vrfs = vrf_config::scopes_of_vrfs();
  std::vector<std::string> scopes(of_vrfs.begin(), of_vrfs.end());
  for (const std::string_view scope : {vrf_config::kTrapScope, vrf_config::kBgpCommonScope}) {
    scopes.emplace_back(scope);
  }
  return kvtree_config_replace(kConfigOwnerFile, scopes, nodes, comment, id, error);
}
