#include "mpls/vpn/mib/src/attributes/attributes.h"

#include "platform/core/base/memory.h"

namespace {

void free_if_text(AttributeText& text) {
  text_replace(&text, nullptr);
}
void free_if_text(FamilyTexts& texts) {
  for (AttributeText& text : texts) free_if_text(text);
}
template <typename Number>
void free_if_text(const Number& /*number*/) {}

}  // namespace

void mpls_vpn_free_attribute_texts(mpls_vpn_vrf_attr* attributes) {
#define MPLS_VPN_FREE(type, name) free_if_text(attributes->name);
  MPLS_VPN_VRF_ATTRIBUTES(MPLS_VPN_FREE)
#undef MPLS_VPN_FREE
}
