// For tests: a loadable module that is not one of the routing table's: it has neither of their symbols.
extern "C" int mpls_vpn_other_module();

extern "C" int mpls_vpn_other_module() {
  return 0;
}
