/* The C interface, from a program in C on the simulated radio in virtual time. Each case is a
 * function; what does not hold is printed, and the exit status is 1. */
#include <kestrin/kestrin.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static int failures = 0;

static void check(bool holds, const char* what, const char* file, int line) {
  if (holds) return;
  printf("%s:%d: does not hold: %s (last error: '%s')\n", file, line, what, kestrin_last_error());
  ++failures;
}
#define CHECK(condition) check((condition), #condition, __FILE__, __LINE__)

struct application {
  kestrin_platform* platform;
  kestrin_manager* manager;
  kestrin_peripheral* kept;
  char transcript[2048];
  bool connects;
  kestrin_status inside;
};

static void note(struct application* application, const char* text) {
  strncat(application->transcript, text,
          sizeof application->transcript - strlen(application->transcript) - 1);
}

static void on_status(int64_t status, void* user) {
  note(user, status == 0 ? "scan|" : "stopped|");
}

static void on_found(kestrin_peripheral* reader, void* user) {
  struct application* const application = user;
  note(application, "found ");
  note(application, kestrin_peripheral_name(reader));
  note(application, "|");
  if (application->kept == NULL) application->kept = kestrin_peripheral_retain(reader);
  if (application->connects) CHECK(kestrin_connect(application->manager, reader) == KESTRIN_OK);
}

static void on_plugged(bool plugged, void* user) {
  struct application* const application = user;
  note(application, plugged ? "plugged|" : "unplugged|");
  if (plugged) application->inside = kestrin_run_for(application->platform, 1);
}

static void on_frame(const uint8_t* bytes, size_t length, void* user) {
  char text[32] = "no bytes|";
  if (bytes != NULL) snprintf(text, sizeof text, "frame %02x %zu|", (unsigned)bytes[2], length);
  note(user, text);
}

static const kestrin_callbacks all_callbacks = {sizeof all_callbacks, on_status, on_found,
                                                on_plugged, on_frame};

/* A manager on a simulated radio with one reader. */
static void begin(struct application* application, const char* reader) {
  memset(application, 0, sizeof *application);
  application->connects = true;
  application->platform = kestrin_platform_create_simulated(true, 1);
  CHECK(application->platform != NULL);
  CHECK(kestrin_simulated_add_reader(application->platform, reader) == KESTRIN_OK);
  application->manager = kestrin_manager_create(application->platform, &all_callbacks, application);
  CHECK(application->manager != NULL);
}

static void end(struct application* application) {
  kestrin_peripheral_release(application->kept);
  kestrin_manager_release(application->manager);
  kestrin_platform_release(application->platform);
}

static void works_a_reader_from_the_scan_to_the_end_of_the_link(void) {
  static const uint8_t payload[] = {1, 2, 3};
  struct application it;
  uint8_t frame[16];
  size_t length = 0;
  begin(&it, "KVR-0417");
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 5) == KESTRIN_OK);
  CHECK(kestrin_is_open(it.manager));
  CHECK(kestrin_build_frame(0x00, 0x22, payload, sizeof payload, frame, sizeof frame, &length) ==
        KESTRIN_OK);
  CHECK(length == 11);
  CHECK(kestrin_send(it.manager, frame, length) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(kestrin_close(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(!kestrin_is_open(it.manager));
  CHECK(strcmp(it.transcript,
               "scan|found KVR-0417|frame 03 27|plugged|frame 22 11|unplugged|unplugged|") == 0);
  CHECK(it.inside == KESTRIN_INSIDE_CALLBACK);
  end(&it);
}

static void hands_on_the_notifications_of_a_kvr_reader(void) {
  static const uint8_t command[] = {0xBB, 0x00, 0x03, 0x00, 0x01, 0xB1, 0x7E, 0x65, 0x97};
  struct application it;
  begin(&it, "KVR-Q62T 0012");
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 5) == KESTRIN_OK);
  it.transcript[0] = '\0';
  CHECK(kestrin_send(it.manager, command, sizeof command) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  /* 27 bytes in notifications of 20. */
  CHECK(strncmp(it.transcript, "frame 03 20|frame ", 18) == 0);
  end(&it);
}

static void tells_a_lost_link(void) {
  struct application it;
  begin(&it, "KVR-0417");
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 5) == KESTRIN_OK);
  it.transcript[0] = '\0';
  CHECK(kestrin_simulated_lose_link(it.platform, "KVR-0417") == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(strcmp(it.transcript, "unplugged|") == 0);
  CHECK(kestrin_simulated_lose_link(it.platform, "nobody") == KESTRIN_INVALID_ARGUMENT);
  CHECK(strcmp(kestrin_last_error(), "there is no virtual reader 'nobody'") == 0);
  end(&it);
}

static void keeps_a_reader_that_is_retained(void) {
  struct application it;
  kestrin_peripheral* current;
  begin(&it, "KVR-0417");
  it.connects = false;
  CHECK(kestrin_current_peripheral(it.manager) == NULL);
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(kestrin_stop_scan(it.manager) == KESTRIN_OK);
  CHECK(strcmp(it.transcript, "scan|found KVR-0417|stopped|") == 0);
  current = kestrin_current_peripheral(it.manager);
  CHECK(current != NULL);
  CHECK(strcmp(kestrin_peripheral_name(current), "KVR-0417") == 0);
  CHECK(strcmp(kestrin_peripheral_identifier(current), kestrin_peripheral_identifier(it.kept)) ==
        0);
  kestrin_peripheral_release(current);
  CHECK(kestrin_connect(it.manager, it.kept) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 5) == KESTRIN_OK);
  CHECK(kestrin_is_open(it.manager));
  end(&it);
}

static void tells_nobody_without_callbacks(void) {
  static const kestrin_callbacks none = {sizeof none, NULL, NULL, NULL, NULL};
  kestrin_platform* const platform = kestrin_platform_create_simulated(true, 1);
  kestrin_manager* const manager = kestrin_manager_create(platform, &none, NULL);
  kestrin_peripheral* reader;
  CHECK(kestrin_simulated_add_reader(platform, "KVR-0417") == KESTRIN_OK);
  CHECK(kestrin_scan(manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(platform, 1) == KESTRIN_OK);
  reader = kestrin_current_peripheral(manager);
  CHECK(kestrin_connect(manager, reader) == KESTRIN_OK);
  CHECK(kestrin_run_for(platform, 5) == KESTRIN_OK);
  CHECK(kestrin_is_open(manager));
  kestrin_peripheral_release(reader);
  kestrin_manager_release(manager);
  kestrin_platform_release(platform);
}

static void refuses_callbacks_of_an_unknown_size(void) {
  static const size_t unknown[] = {0,
                                   1,
                                   sizeof(kestrin_callbacks) - 1,
                                   sizeof(kestrin_callbacks) + 1,
                                   sizeof(kestrin_callbacks) + sizeof(void*),
                                   SIZE_MAX};
  kestrin_platform* const platform = kestrin_platform_create_simulated(true, 1);
  kestrin_callbacks callbacks = all_callbacks;
  char expected[160];
  for (size_t i = 0; i < sizeof unknown / sizeof unknown[0]; ++i) {
    callbacks.struct_size = unknown[i];
    CHECK(kestrin_manager_create(platform, &callbacks, NULL) == NULL);
    snprintf(
        expected, sizeof expected,
        "kestrin_callbacks.struct_size is %zu; it is to be sizeof(kestrin_callbacks), which is "
        "%zu for this library",
        unknown[i], sizeof callbacks);
    CHECK(strcmp(kestrin_last_error(), expected) == 0);
  }
  kestrin_platform_release(platform);
}

static void may_release_a_manager_after_its_platform(void) {
  struct application it;
  begin(&it, "KVR-0417");
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 5) == KESTRIN_OK);
  kestrin_platform_release(it.platform);
  it.platform = NULL;
  CHECK(kestrin_is_open(it.manager));
  end(&it);
}

static void refuses_what_is_null(void) {
  uint8_t byte = 0;
  size_t length = 0;
  CHECK(kestrin_scan(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(strcmp(kestrin_last_error(), "the manager is NULL") == 0);
  CHECK(kestrin_stop_scan(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_close(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_send(NULL, &byte, 1) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_connect(NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_current_peripheral(NULL) == NULL);
  CHECK(!kestrin_is_open(NULL));
  CHECK(kestrin_run_for(NULL, 1) == KESTRIN_INVALID_ARGUMENT);
  CHECK(strcmp(kestrin_last_error(), "the platform is NULL") == 0);
  CHECK(kestrin_run(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_run_one_turn(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_stop(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_post(NULL, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_set_log(NULL, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_file_descriptor(NULL) == -1);
  CHECK(kestrin_now(NULL) < 0);
  CHECK(kestrin_radio_trouble(NULL) == NULL);
  CHECK(kestrin_manager_create(NULL, &all_callbacks, NULL) == NULL);
  CHECK(kestrin_simulated_add_reader(NULL, "KVR") == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_simulated_lose_link(NULL, "KVR") == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_peripheral_name(NULL) == NULL);
  CHECK(strcmp(kestrin_last_error(), "the reader is NULL") == 0);
  CHECK(kestrin_peripheral_identifier(NULL) == NULL);
  CHECK(kestrin_peripheral_retain(NULL) == NULL);
  CHECK(kestrin_build_frame(0, 0, NULL, 1, &byte, 1, &length) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_build_frame(0, 0, NULL, 0, NULL, 1, &length) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_build_frame(0, 0, NULL, 0, &byte, 1, NULL) == KESTRIN_INVALID_ARGUMENT);
  kestrin_peripheral_release(NULL);
  kestrin_manager_release(NULL);
  kestrin_platform_release(NULL);
}

static void refuses_arguments_that_do_not_fit(void) {
  struct application it;
  begin(&it, "KVR-0417");
  CHECK(kestrin_connect(it.manager, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_send(it.manager, NULL, 1) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_send(it.manager, NULL, 0) == KESTRIN_NOT_WRITTEN);
  CHECK(kestrin_post(it.platform, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_manager_create(it.platform, NULL, NULL) == NULL);
  CHECK(kestrin_simulated_add_reader(it.platform, NULL) == KESTRIN_INVALID_ARGUMENT);
  end(&it);
}

static void tells_how_much_memory_a_frame_needs(void) {
  static uint8_t payload[65536];
  uint8_t frame[9] = {0};
  size_t length = 0;
  payload[0] = 0xB1;
  CHECK(kestrin_build_frame(0x00, 0x03, payload, 1, NULL, 0, &length) == KESTRIN_TOO_SMALL);
  CHECK(length == 9);
  CHECK(strcmp(kestrin_last_error(), "the frame has 9 bytes, the memory for it 0") == 0);
  CHECK(kestrin_build_frame(0x00, 0x03, payload, 1, frame, sizeof frame, &length) == KESTRIN_OK);
  CHECK(memcmp(frame, "\xBB\x00\x03\x00\x01\xB1\x7E\x65\x97", 9) == 0);
  CHECK(kestrin_build_frame(0, 0, payload, sizeof payload, NULL, 0, &length) ==
        KESTRIN_INVALID_ARGUMENT);
  CHECK(strstr(kestrin_last_error(), "65535") != NULL);
}

static void count_line(const char* line, size_t length, void* user) {
  if (length >= 9 && memcmp(line, "start San", 9) == 0) ++*(int*)user;
}

static void hands_the_log_to_a_function(void) {
  struct application it;
  int lines = 0;
  begin(&it, "KVR-0417");
  CHECK(kestrin_set_log(it.platform, count_line, &lines) == KESTRIN_OK);
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(lines == 1);
  CHECK(kestrin_set_log(it.platform, NULL, NULL) == KESTRIN_OK);
  CHECK(kestrin_scan(it.manager) == KESTRIN_OK);
  CHECK(kestrin_run_for(it.platform, 1) == KESTRIN_OK);
  CHECK(lines == 1);
  end(&it);
}

static void stop_it(void* user) { CHECK(kestrin_stop(user) == KESTRIN_OK); }

static void turns_the_run_loop_in_every_way(void) {
  kestrin_platform* const platform = kestrin_platform_create_simulated(true, 1);
  CHECK(kestrin_now(platform) == 0);
  CHECK(kestrin_run_for(platform, 2.5) == KESTRIN_OK);
  CHECK(kestrin_now(platform) == 2.5);
  CHECK(kestrin_file_descriptor(platform) >= 0);
  CHECK(kestrin_post(platform, stop_it, platform) == KESTRIN_OK);
  CHECK(kestrin_run(platform) == KESTRIN_OK);
  CHECK(kestrin_post(platform, stop_it, platform) == KESTRIN_OK);
  CHECK(kestrin_run_one_turn(platform) == KESTRIN_OK);
  CHECK(kestrin_run_for(platform, 1) == KESTRIN_OK); /* Ended at once by the stop. */
  CHECK(kestrin_now(platform) == 2.5);
  CHECK(strcmp(kestrin_radio_trouble(platform), "") == 0);
  kestrin_platform_release(platform);
}

static void has_the_real_radio_or_says_why_not(void) {
  kestrin_platform* const platform = kestrin_platform_create(NULL);
  if (platform == NULL) {
    CHECK(strcmp(kestrin_last_error(), "this library was built without the real radio") == 0);
    return;
  }
  CHECK(kestrin_radio_trouble(platform) != NULL);
  CHECK(kestrin_simulated_add_reader(platform, "KVR") == KESTRIN_INVALID_ARGUMENT);
  CHECK(strcmp(kestrin_last_error(), "the platform's radio is not a simulated one") == 0);
  kestrin_platform_release(platform);
}

int main(void) {
  CHECK(strcmp(kestrin_last_error(), "") == 0);
  CHECK(strcmp(kestrin_version(), EXPECTED_VERSION) == 0);
  works_a_reader_from_the_scan_to_the_end_of_the_link();
  hands_on_the_notifications_of_a_kvr_reader();
  tells_a_lost_link();
  keeps_a_reader_that_is_retained();
  tells_nobody_without_callbacks();
  refuses_callbacks_of_an_unknown_size();
  may_release_a_manager_after_its_platform();
  refuses_what_is_null();
  refuses_arguments_that_do_not_fit();
  tells_how_much_memory_a_frame_needs();
  hands_the_log_to_a_function();
  turns_the_run_loop_in_every_way();
  has_the_real_radio_or_says_why_not();
  puts(failures == 0 ? "12 cases hold" : "FAILED");
  return failures == 0 ? EXIT_SUCCESS : EXIT_FAILURE;
}
