#include <kestrin/kestrin.h>
#include <stdio.h>

static void on_phase(kestrin_reader* reader, kestrin_phase phase, void* user) {
  const uint8_t command[] = {0xbb, 0x00, 0x22, 0x00, 0x00, 0x7e, 0x54, 0x73};
  if (phase == KESTRIN_PLUGGED_IN) kestrin_reader_send(reader, command, sizeof command, NULL, NULL);
}

static void on_frame(kestrin_reader* reader, const kestrin_frame* frame, void* user) {
  printf("%s: a frame with the code %02x\n", kestrin_reader_name(reader), frame->code);
}

static void on_trouble(kestrin_reader* reader, kestrin_trouble trouble, const char* text,
                       void* user) {
  puts(text);
}

int main(void) {
  const kestrin_reader_options options = {.struct_size = sizeof options, .reader = "KVR-0417"};
  const kestrin_reader_handlers handlers = {sizeof handlers, on_phase, on_frame, NULL,
                                            on_trouble,      NULL};
  kestrin_platform* platform = kestrin_platform_create_simulated(true, 1);
  kestrin_simulated_add_reader(platform, "KVR-0417");
  kestrin_reader* reader = kestrin_reader_create(platform, &options, &handlers, NULL);
  kestrin_run_for(platform, 5);
  kestrin_reader_release(reader);
  kestrin_platform_release(platform);
  return 0;
}
