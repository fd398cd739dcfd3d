#include <kestrin/kestrin.h>
#include <stdio.h>

static kestrin_manager* manager;

static void on_found(kestrin_reader* reader, void* user) { kestrin_connect(manager, reader); }

static void on_plugged(bool plugged, void* user) {
  const uint8_t command[] = {0xbb, 0x00, 0x22, 0x00, 0x00, 0x7e, 0x54, 0x73};
  if (plugged) kestrin_send(manager, command, sizeof command);
}

static void on_frame(const uint8_t* bytes, size_t length, void* user) {
  printf("a frame of %zu bytes with the code %02x\n", length, bytes[2]);
}

int main(void) {
  const kestrin_callbacks callbacks = {sizeof callbacks, NULL, on_found, on_plugged, on_frame};
  kestrin_platform* platform = kestrin_platform_create_simulated(true, 1);
  kestrin_simulated_add_reader(platform, "KVR-0417");
  manager = kestrin_manager_create(platform, &callbacks, NULL);
  kestrin_scan(manager);
  kestrin_run_for(platform, 5);
  kestrin_manager_release(manager);
  kestrin_platform_release(platform);
  return 0;
}
