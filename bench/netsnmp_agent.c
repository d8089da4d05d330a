/* The same interface table on net-snmp's agent library, the way its own documentation builds a table: sorted
   rows in its own container, found by its table helpers. What a sub-agent on the library costs, for
   comparison.

     netsnmp_agent SOCKET VRFS INTERFACES_PER_VRF */
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>

#include <net-snmp/agent/net-snmp-agent-includes.h>
#include <stdio.h>
#include <stdlib.h>

static const oid table_oid[] = {1, 3, 6, 1, 2, 1, 10, 166, 11, 1, 2, 1};

static int handle(netsnmp_mib_handler* handler, netsnmp_handler_registration* registration,
                  netsnmp_agent_request_info* info, netsnmp_request_info* requests) {
  static u_char protocols = 0;
  netsnmp_request_info* request;
  (void)handler;
  (void)registration;
  (void)info;
  for (request = requests; request; request = request->next) {
    netsnmp_table_request_info* table = netsnmp_extract_table_info(request);
    if (request->processed || !table) continue;
    if (table->colnum == 3)
      snmp_set_var_typed_value(request->requestvb, ASN_OCTET_STR, &protocols, 1);
    else
      snmp_set_var_typed_integer(request->requestvb, ASN_INTEGER,
                                 table->colnum == 2   ? 2
                                 : table->colnum == 4 ? 5
                                                      : 1);
  }
  return SNMP_ERR_NOERROR;
}

static void make_table(unsigned vrfs, unsigned interfaces) {
  netsnmp_tdata* data = netsnmp_tdata_create_table("ifConf", 0);
  netsnmp_table_registration_info* info = SNMP_MALLOC_TYPEDEF(netsnmp_table_registration_info);
  unsigned vrf, interface;
  long index = 100000; /* the generator's first interface has the next one */
  netsnmp_tdata_add_index(data, ASN_OCTET_STR);
  netsnmp_tdata_add_index(data, ASN_INTEGER);
  netsnmp_table_helper_add_indexes(info, ASN_OCTET_STR, ASN_INTEGER, 0);
  info->min_column = 2;
  info->max_column = 5;
  for (vrf = 1; vrf <= vrfs; ++vrf) {
    char name[32];
    int length = snprintf(name, sizeof name, "customer-%05u", vrf);
    for (interface = 0; interface < interfaces; ++interface) {
      netsnmp_tdata_row* row = netsnmp_tdata_create_row();
      ++index;
      netsnmp_tdata_row_add_index(row, ASN_OCTET_STR, name, (size_t)length);
      netsnmp_tdata_row_add_index(row, ASN_INTEGER, &index, sizeof index);
      netsnmp_tdata_add_row(data, row);
    }
  }
  netsnmp_tdata_register(netsnmp_create_handler_registration("ifConf", handle, table_oid,
                                                             OID_LENGTH(table_oid), HANDLER_CAN_RONLY),
                         data, info);
}

int main(int argc, char** argv) {
  if (argc != 4) return 2;
  netsnmp_ds_set_boolean(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_ROLE, 1);
  netsnmp_ds_set_string(NETSNMP_DS_APPLICATION_ID, NETSNMP_DS_AGENT_X_SOCKET, argv[1]);
  init_agent("netsnmp_agent");
  make_table((unsigned)atoi(argv[2]), (unsigned)atoi(argv[3]));
  init_snmp("netsnmp_agent");
  for (;;) agent_check_and_process(1);
}
