/* A first application in C: finds a reader, connects to it, sends it a command and prints the
 * frames that come. With a real one it would begin with kestrin_platform_create(NULL). */
#include <kestrin/kestrin.h>
#include <stdio.h>

static kestrin_manager* manager;

static void on_found(kestrin_peripheral* reader, void* user) {
  (void)user;
  printf("found %s\n", kestrin_peripheral_name(reader));
  kestrin_connect(manager, reader);
}

static void on_plugged(bool plugged, void* user) {
  uint8_t command[8];
  size_t length;
  (void)user;
  puts(plugged ? "plugged in" : "unplugged");
  if (plugged &&
      kestrin_build_frame(0x00, 0x22, NULL, 0, command, sizeof command, &length) == KESTRIN_OK)
    kestrin_send(manager, command, length);
}

static void on_frame(const uint8_t* bytes, size_t length, void* user) {
  (void)user;
  printf("frame");
  for (size_t i = 0; i < length; ++i) printf(" %02x", bytes[i]);
  puts("");
}

int main(void) {
  const kestrin_callbacks callbacks = {sizeof callbacks, NULL, on_found, on_plugged, on_frame};
  kestrin_platform* platform = kestrin_platform_create_simulated(true, 1);
  kestrin_simulated_add_reader(platform, "KVR-0417");
  manager = kestrin_manager_create(platform, &callbacks, NULL);
  kestrin_scan(manager);
  kestrin_run_for(platform, 5);
  kestrin_close(manager);
  kestrin_run_for(platform, 1);
  kestrin_manager_release(manager);
  kestrin_platform_release(platform);
  return 0;
}
