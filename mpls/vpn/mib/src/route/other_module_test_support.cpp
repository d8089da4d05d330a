// For tests: a module that can be opened and is none of the routing table's: it has neither of their symbols.
extern "C" int mpls_vpn_other_module();

extern "C" int mpls_vpn_other_module() {
  return 0;
}
