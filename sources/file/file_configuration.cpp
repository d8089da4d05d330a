#include "sources/file/file_configuration.h"

#include "platform/config/vrf_config.h"

Status replace_file_configuration(const std::vector<KvConfigNode>& nodes, const std::string& comment,
                                  std::string* id, std::string* error) {
  std::vector<std::string> scopes(vrf_config::kScopesOfVrfs.begin(), vrf_config::kScopesOfVrfs.end());
  for (const std::string_view scope : {vrf_config::kTrapScope, vrf_config::kBgpCommonScope}) {
    scopes.emplace_back(scope);
  }
  return kvtree_config_replace(kConfigOwnerFile, scopes, nodes, comment, id, error);
}
