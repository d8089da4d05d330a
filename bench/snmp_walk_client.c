/* Walks a subtree with GETBULK as fast as the agent answers and prints the number of varbinds and the
   seconds.

     snmp_walk_client PORT OID REPETITIONS ROUNDS */
#include <net-snmp/net-snmp-config.h>

#include <net-snmp/net-snmp-includes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>

static double now(void) {
  struct timespec t;
  clock_gettime(CLOCK_MONOTONIC, &t);
  return (double)t.tv_sec + (double)t.tv_nsec / 1e9;
}

/* One walk; the varbinds below the root, or -1 on an error or an OID that does not increase. */
static long walk(netsnmp_session* session, const oid* root, size_t root_length, long repetitions) {
  oid name[MAX_OID_LEN];
  size_t length = root_length;
  long count = 0;
  memcpy(name, root, root_length * sizeof(oid));
  for (;;) {
    netsnmp_pdu *request = snmp_pdu_create(SNMP_MSG_GETBULK), *answer = NULL;
    netsnmp_variable_list* variable;
    int ended = 0;
    request->non_repeaters = 0;
    request->max_repetitions = repetitions;
    snmp_add_null_var(request, name, length);
    if (snmp_synch_response(session, request, &answer) != STAT_SUCCESS || answer->errstat != SNMP_ERR_NOERROR)
      return -1;
    for (variable = answer->variables; variable; variable = variable->next_variable) {
      if (variable->type == SNMP_ENDOFMIBVIEW || variable->name_length < root_length ||
          memcmp(variable->name, root, root_length * sizeof(oid)) != 0) {
        ended = 1;
        break;
      }
      if (snmp_oid_compare(name, length, variable->name, variable->name_length) >= 0) return -1;
      ++count;
      memcpy(name, variable->name, variable->name_length * sizeof(oid));
      length = variable->name_length;
    }
    snmp_free_pdu(answer);
    if (ended) return count;
  }
}

int main(int argc, char** argv) {
  netsnmp_session options, *session;
  oid root[MAX_OID_LEN];
  size_t root_length = MAX_OID_LEN;
  char peer[64];
  long round, rounds, count = 0;
  double start;
  if (argc != 5) return 2;
  netsnmp_ds_set_boolean(NETSNMP_DS_LIBRARY_ID, NETSNMP_DS_LIB_DONT_READ_CONFIGS, 1);
  init_snmp("snmp_walk_client");
  snprintf(peer, sizeof peer, "udp:127.0.0.1:%s", argv[1]);
  snmp_sess_init(&options);
  options.version = SNMP_VERSION_2c;
  options.peername = peer;
  options.community = (u_char*)strdup("public");
  options.community_len = 6;
  options.timeout = 5000000;
  options.retries = 0;
  session = snmp_open(&options);
  if (!session || !read_objid(argv[2], root, &root_length)) return 1;
  rounds = atol(argv[4]);
  start = now();
  for (round = 0; round < rounds; ++round) {
    long walked = walk(session, root, root_length, atol(argv[3]));
    if (walked < 0) return 1;
    count += walked;
  }
  printf("%ld %.6f\n", count, now() - start);
  return 0;
}
