// The stand-in for the device's IPC library: properties in memory instead of a service bus.
#include "nipc/nipc.h"

#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "nipc/nipc_standin.h"

namespace {

struct Connection {
  Connection* next;
};

struct Property {
  Property* next;
  char* service;
  char* name;
  char* value;
};

struct Event {
  char* source;
  char* name;
};

// Guards everything below.
pthread_mutex_t s_mutex = PTHREAD_MUTEX_INITIALIZER;
Connection* s_connections;
Property* s_properties;
bool s_fail_open;
uint32_t s_read_status;
uint32_t s_close_status;
uint32_t s_unfreed_strings;
uint32_t s_read_count;
char s_service[64];

class Lock {
 public:
  Lock() { pthread_mutex_lock(&s_mutex); }
  ~Lock() { pthread_mutex_unlock(&s_mutex); }
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
};

// The link that holds the connection, or the last, empty one.
Connection** find_connection(const void* handle) {
  Connection** link = &s_connections;
  while (*link != nullptr && *link != handle) link = &(*link)->next;
  return link;
}

Property** find_property(const char* service, const char* name) {
  Property** link = &s_properties;
  while (*link != nullptr && (strcmp((*link)->service, service) != 0 || strcmp((*link)->name, name) != 0)) {
    link = &(*link)->next;
  }
  return link;
}

void free_property(Property* property) {
  free(property->service);
  free(property->name);
  free(property->value);
  free(property);
}

// Takes the first element off a list.
template <typename T>
T* pop(T** list) {
  T* first = *list;
  *list = first->next;
  return first;
}

uint32_t read_property(const void* handle, const char* service, const char* name, char** value) {
  if (handle == nullptr || *find_connection(handle) == nullptr) return NIPC_STANDIN_BAD_HANDLE;
  if (service == nullptr || name == nullptr) return NIPC_STANDIN_INVALID;
  const Property* property = *find_property(service, name);
  if (property == nullptr) return NIPC_STANDIN_NO_PROPERTY;
  *value = strdup(property->value);
  if (*value == nullptr) return NIPC_STANDIN_NO_MEMORY;
  s_unfreed_strings++;
  return NIPC_STANDIN_OK;
}

}  // namespace

void* NipcOpen(const char* service) {
  Lock lock;
  if (service == nullptr || s_fail_open) return nullptr;
  snprintf(s_service, sizeof s_service, "%s", service);
  auto* connection = static_cast<Connection*>(malloc(sizeof(Connection)));
  if (connection == nullptr) return nullptr;
  connection->next = s_connections;
  s_connections = connection;
  return connection;
}

uint32_t NipcClose(void* handle) {
  Lock lock;
  Connection** link = find_connection(handle);
  if (*link == nullptr) return NIPC_STANDIN_BAD_HANDLE;
  free(pop(link));
  return s_close_status;
}

uint32_t NipcGetStringProperty(void* handle, const char* service, const char* property, char** value) {
  Lock lock;
  s_read_count++;
  if (value == nullptr) return NIPC_STANDIN_INVALID;
  uint32_t status = read_property(handle, service, property, value);
  return s_read_status != 0 ? s_read_status : status;
}

void NipcFreeString(char* value) {
  if (value == nullptr) return;
  Lock lock;
  free(value);
  s_unfreed_strings--;
}

const char* NipcGetEventName(const void* event) {
  return event != nullptr ? static_cast<const Event*>(event)->name : nullptr;
}

const char* NipcGetEventSource(const void* event) {
  return event != nullptr ? static_cast<const Event*>(event)->source : nullptr;
}

uint32_t NipcStandinSetProperty(const char* service, const char* property, const char* value) {
  if (service == nullptr || property == nullptr || value == nullptr) return NIPC_STANDIN_INVALID;
  auto* created = static_cast<Property*>(calloc(1, sizeof(Property)));
  if (created == nullptr) return NIPC_STANDIN_NO_MEMORY;
  created->service = strdup(service);
  created->name = strdup(property);
  created->value = strdup(value);
  if (created->service == nullptr || created->name == nullptr || created->value == nullptr) {
    free_property(created);
    return NIPC_STANDIN_NO_MEMORY;
  }
  Lock lock;
  Property** link = find_property(service, property);
  if (*link != nullptr) free_property(pop(link));
  created->next = s_properties;
  s_properties = created;
  return NIPC_STANDIN_OK;
}

uint32_t NipcStandinRemoveProperty(const char* service, const char* property) {
  if (service == nullptr || property == nullptr) return NIPC_STANDIN_INVALID;
  Lock lock;
  Property** link = find_property(service, property);
  if (*link == nullptr) return NIPC_STANDIN_NO_PROPERTY;
  free_property(pop(link));
  return NIPC_STANDIN_OK;
}

void NipcStandinFailOpen(int fail) {
  Lock lock;
  s_fail_open = fail != 0;
}

void NipcStandinFailReads(uint32_t status) {
  Lock lock;
  s_read_status = status;
}

void NipcStandinSetCloseStatus(uint32_t status) {
  Lock lock;
  s_close_status = status;
}

uint32_t NipcStandinOpenHandles(void) {
  Lock lock;
  uint32_t count = 0;
  for (const Connection* each = s_connections; each != nullptr; each = each->next) count++;
  return count;
}

uint32_t NipcStandinUnfreedStrings(void) {
  Lock lock;
  return s_unfreed_strings;
}

const char* NipcStandinService(void) {
  return s_service;
}

uint32_t NipcStandinReadCount(void) {
  Lock lock;
  return s_read_count;
}

void* NipcStandinCreateEvent(const char* source, const char* name) {
  if (source == nullptr || name == nullptr) return nullptr;
  auto* event = static_cast<Event*>(calloc(1, sizeof(Event)));
  if (event == nullptr) return nullptr;
  event->source = strdup(source);
  event->name = strdup(name);
  if (event->source == nullptr || event->name == nullptr) {
    NipcStandinFreeEvent(event);
    return nullptr;
  }
  return event;
}

void NipcStandinFreeEvent(void* event) {
  if (event == nullptr) return;
  auto* freed = static_cast<Event*>(event);
  free(freed->source);
  free(freed->name);
  free(freed);
}

void NipcStandinReset(void) {
  Lock lock;
  while (s_connections != nullptr) free(pop(&s_connections));
  while (s_properties != nullptr) free_property(pop(&s_properties));
  s_fail_open = false;
  s_read_status = 0;
  s_close_status = 0;
  s_unfreed_strings = 0;
  s_read_count = 0;
  s_service[0] = '\0';
}
