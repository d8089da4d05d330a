// See file_configuration.h.
#include "sources/file/file_configuration.h"

#include "platform/vrf_config/vrf_config.h"

Status replace_file_configuration(const std::vector<KvConfigNode>& nodes, const std::string& comment,
                                  std::string* id, std::string* mistake) {
  std::vector<std::string> scopes;
  for (const std::string_view scope :
       {vrf_config::kVrfScope, vrf_config::kTrapScope, vrf_config::kBgpCommonScope, vrf_config::kBgpScope,
        vrf_config::kRipScope, vrf_config::kOspfScope, vrf_config::kEigrpScope, vrf_config::kStaticScope}) {
    scopes.emplace_back(scope);
  }
  return kvtree_config_replace(kConfigOwnerFile, scopes, nodes, comment, id, mistake);
}
