/* Walks a subtree with GETBULK as fast as the agent answers and prints the number of varbinds and the
   seconds.

     snmp_walk_client PORT OID[,OID...] REPETITIONS ROUNDS

   Several subtrees, such as columns of a table, are walked side by side. */
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

struct place {
  oid root[MAX_OID_LEN], name[MAX_OID_LEN];
  size_t root_length, length;
};

static netsnmp_pdu* next_request(const struct place* places, int count, long repetitions) {
  netsnmp_pdu* request = snmp_pdu_create(SNMP_MSG_GETBULK);
  int i;
  request->non_repeaters = 0;
  request->max_repetitions = repetitions;
  for (i = 0; i < count; ++i) snmp_add_null_var(request, places[i].name, places[i].length);
  return request;
}

/* Moves to the variable: 1; 0 if it is not below the root, -1 if it does not increase. */
static int move(struct place* place, const netsnmp_variable_list* variable) {
  if (variable->type == SNMP_ENDOFMIBVIEW || variable->name_length < place->root_length ||
      memcmp(variable->name, place->root, place->root_length * sizeof(oid)) != 0)
    return 0;
  if (snmp_oid_compare(place->name, place->length, variable->name, variable->name_length) >= 0) return -1;
  memcpy(place->name, variable->name, variable->name_length * sizeof(oid));
  place->length = variable->name_length;
  return 1;
}

/* One walk of the subtrees side by side, until one ends; the varbinds below the roots, or -1 on an error. */
static long walk(netsnmp_session* session, struct place* places, int count, long repetitions) {
  long walked = 0;
  int i, moved = 1;
  for (i = 0; i < count; ++i) {
    memcpy(places[i].name, places[i].root, sizeof places[i].root);
    places[i].length = places[i].root_length;
  }
  while (moved == 1) {
    netsnmp_pdu *request = next_request(places, count, repetitions), *answer = NULL;
    netsnmp_variable_list* variable;
    if (snmp_synch_response(session, request, &answer) != STAT_SUCCESS || answer->errstat != SNMP_ERR_NOERROR)
      return -1;
    for (i = 0, variable = answer->variables; variable && moved == 1; variable = variable->next_variable) {
      moved = move(&places[i], variable);
      walked += moved;
      i = (i + 1) % count;
    }
    snmp_free_pdu(answer);
  }
  return moved < 0 ? -1 : walked;
}

int main(int argc, char** argv) {
  netsnmp_session options, *session;
  static struct place places[16];
  int roots = 0;
  char peer[64], *root;
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
  if (!session) return 1;
  for (root = strtok(argv[2], ","); root && roots < 16; root = strtok(NULL, ","), ++roots) {
    places[roots].root_length = MAX_OID_LEN;
    if (!read_objid(root, places[roots].root, &places[roots].root_length)) return 1;
  }
  rounds = atol(argv[4]);
  start = now();
  for (round = 0; round < rounds; ++round) {
    long walked = walk(session, places, roots, atol(argv[3]));
    if (walked < 0) return 1;
    count += walked;
  }
  printf("%ld %.6f\n", count, now() - start);
  return 0;
}
