// The items of a router as objects of JSON, for "router show --json". An absent value is null.
#pragma once

#include <nlohmann/json.hpp>

#include "platform/router/model/router.h"

using RouterJson = nlohmann::ordered_json;

RouterJson vrf_json(const router::Vrf& vrf);
RouterJson interface_json(const router::Router& model, const router::Interface& interface);
RouterJson route_json(router::RouteTableId table, const router::Route& route, const router::Router& model);
