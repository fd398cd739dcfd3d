/* Held readers and parsed frames, from a program in C on the simulated radio in virtual time. Each
 * case is a function; what does not hold is printed, and the exit status is 1. */
#define _POSIX_C_SOURCE 200809L
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

static const uint8_t command[] = {0xbb, 0x00, 0x22, 0x00, 0x00, 0x7e, 0x54, 0x73};

struct application {
  kestrin_platform* platform;
  kestrin_reader* reader;
  char transcript[2048];
  kestrin_phase drop_at;
  bool drops;
};

static void note(struct application* application, const char* text) {
  strncat(application->transcript, text,
          sizeof application->transcript - strlen(application->transcript) - 1);
}

static bool heard(struct application* application, const char* expected) {
  const bool same = strcmp(application->transcript, expected) == 0;
  if (!same) printf("heard '%s', not '%s'\n", application->transcript, expected);
  application->transcript[0] = '\0';
  return same;
}

static void on_phase(kestrin_reader* reader, kestrin_phase phase, void* user) {
  struct application* const application = user;
  char text[32];
  CHECK(kestrin_reader_phase(reader) == phase);
  snprintf(text, sizeof text, "phase %d|", (int)phase);
  note(application, text);
  if (application->drops && phase == application->drop_at) {
    kestrin_reader_release(reader);
    application->reader = NULL;
  }
}

static void on_frame(kestrin_reader* reader, const kestrin_frame* frame, void* user) {
  char text[48];
  CHECK(reader != NULL && frame->struct_size == sizeof *frame);
  CHECK(frame->length == frame->payload_length + 8 && frame->payload == frame->bytes + 5);
  snprintf(text, sizeof text, "frame %02x %02x %zu|", frame->type, frame->code,
           frame->payload_length);
  note(user, text);
}

static void on_value(kestrin_reader* reader, const uint8_t* bytes, size_t length, void* user) {
  char text[32];
  CHECK(reader != NULL && bytes != NULL);
  snprintf(text, sizeof text, "value %zu|", length);
  note(user, text);
}

static void on_trouble(kestrin_reader* reader, kestrin_trouble trouble, const char* text,
                       void* user) {
  char line[32];
  CHECK(reader != NULL && strlen(text) > 10);
  snprintf(line, sizeof line, "trouble %d|", (int)trouble);
  note(user, line);
}

static void on_seen(kestrin_reader* reader, void* user) {
  CHECK(reader != NULL);
  note(user, "seen|");
}

static const kestrin_reader_handlers all_handlers = {
    sizeof all_handlers, on_phase, on_frame, on_value, on_trouble, on_seen};

static void on_sent(kestrin_trouble trouble, const char* text, void* user) {
  char line[32];
  CHECK((trouble == KESTRIN_NO_TROUBLE) == (text[0] == '\0'));
  snprintf(line, sizeof line, "sent %d|", (int)trouble);
  note(user, line);
}

static void on_answer(const kestrin_frame* answer, kestrin_trouble trouble, const char* text,
                      void* user) {
  char line[48];
  CHECK((answer == NULL) == (trouble != KESTRIN_NO_TROUBLE));
  CHECK((trouble == KESTRIN_NO_TROUBLE) == (text[0] == '\0'));
  snprintf(line, sizeof line, "answer %02x %d|", answer ? answer->code : 0, (int)trouble);
  note(user, line);
}

static void on_closed(void* user) { note(user, "closed|"); }

static void each_seen(const char* name, const char* identifier, void* user) {
  CHECK(strlen(identifier) == 17);
  note(user, name);
  note(user, "|");
}

static void begin(struct application* application, const char* device,
                  const kestrin_reader_options* options) {
  memset(application, 0, sizeof *application);
  application->platform = kestrin_platform_create_simulated(true, 1);
  CHECK(kestrin_simulated_add_reader(application->platform, device) == KESTRIN_OK);
  application->reader =
      kestrin_reader_create(application->platform, options, &all_handlers, application);
  CHECK(application->reader != NULL);
}

static void end(struct application* application) {
  kestrin_reader_release(application->reader);
  kestrin_platform_release(application->platform);
}

static void a_reader_is_found_plugged_in_and_brought_back(void) {
  struct application application;
  begin(&application, "KVR-0417", NULL);
  CHECK(kestrin_reader_phase(application.reader) == KESTRIN_SEARCHING);
  CHECK(strcmp(kestrin_reader_name(application.reader), "") == 0);
  CHECK(kestrin_run_for(application.platform, 5) == KESTRIN_OK);
  CHECK(heard(&application, "seen|phase 2|phase 3|frame 01 03 19|phase 4|"));
  CHECK(strcmp(kestrin_reader_name(application.reader), "KVR-0417") == 0);
  CHECK(strlen(kestrin_reader_identifier(application.reader)) == 17);
  CHECK(kestrin_reader_has_link(application.reader));
  CHECK(kestrin_simulated_lose_link(application.platform, "KVR-0417") == KESTRIN_OK);
  CHECK(kestrin_run_for(application.platform, 5) == KESTRIN_OK);
  CHECK(heard(&application, "phase 5|phase 2|phase 3|frame 01 03 19|phase 4|"));
  end(&application);
}

static void frames_are_sent_and_exchanged(void) {
  struct application application;
  uint64_t exchange = 0;
  begin(&application, "KVR-0417", NULL);
  kestrin_run_for(application.platform, 5);
  application.transcript[0] = '\0';
  CHECK(kestrin_reader_send(application.reader, command, sizeof command, on_sent, &application) ==
        KESTRIN_OK);
  CHECK(kestrin_reader_exchange(application.reader, command, sizeof command, 1, on_answer,
                                &application, &exchange) == KESTRIN_OK);
  CHECK(exchange != 0);
  CHECK(heard(&application, ""));
  kestrin_run_for(application.platform, 1);
  CHECK(heard(&application, "sent 0|answer 22 0|frame 01 22 0|"));
  CHECK(kestrin_reader_exchange(application.reader, command, 7, 1, on_answer, &application, NULL) ==
        KESTRIN_OK);
  CHECK(kestrin_reader_exchange(application.reader, command, sizeof command, 1, on_answer,
                                &application, &exchange) == KESTRIN_OK);
  CHECK(kestrin_reader_forget(application.reader, exchange) == KESTRIN_OK);
  kestrin_run_for(application.platform, 1);
  CHECK(heard(&application, "answer 00 18|frame 01 22 0|"));
  CHECK(kestrin_simulated_lose_link(application.platform, "KVR-0417") == KESTRIN_OK);
  kestrin_run_for(application.platform, 0.1);
  application.transcript[0] = '\0';
  CHECK(kestrin_reader_send(application.reader, command, sizeof command, on_sent, &application) ==
        KESTRIN_OK);
  kestrin_run_for(application.platform, 0);
  CHECK(heard(&application, "sent 14|"));
  end(&application);
}

static void a_reader_that_is_not_there_is_trouble_and_the_end_where_it_is_to_be(void) {
  struct application application;
  const kestrin_reader_options options = {
      .struct_size = sizeof options, .reader = "KVR-9", .find_limit = 2, .give_up = true};
  begin(&application, "KVR-0417", &options);
  kestrin_run_for(application.platform, 1.9);
  CHECK(heard(&application, "seen|"));
  kestrin_run_for(application.platform, 1);
  CHECK(heard(&application, "trouble 12|phase 7|"));
  end(&application);
}

static void limits_are_thirty_seconds_and_none_below_zero(void) {
  struct application application;
  kestrin_reader_options options = {.struct_size = sizeof options, .reader = "KVR-9"};
  begin(&application, "KVR-0417", &options);
  kestrin_run_for(application.platform, 29.9);
  CHECK(heard(&application, "seen|"));
  kestrin_run_for(application.platform, 0.2);
  CHECK(heard(&application, "trouble 12|"));
  end(&application);
  options.find_limit = -1;
  begin(&application, "KVR-0417", &options);
  kestrin_run_for(application.platform, 1000);
  CHECK(heard(&application, "seen|"));
  end(&application);
}

static void several_are_refused_until_one_is_chosen(void) {
  struct application application;
  char identifier[32] = "";
  begin(&application, "KVR-1", NULL);
  CHECK(kestrin_simulated_add_reader(application.platform, "KVR-2") == KESTRIN_OK);
  kestrin_run_for(application.platform, 2);
  CHECK(heard(&application, "seen|seen|trouble 20|"));
  CHECK(kestrin_reader_each_seen(application.reader, true, each_seen, &application) == KESTRIN_OK);
  CHECK(strlen(application.transcript) == strlen("KVR-1|KVR-2|"));
  application.transcript[0] = '\0';
  CHECK(kestrin_reader_choose(application.reader, "nobody") == KESTRIN_INVALID_ARGUMENT);
  snprintf(identifier, sizeof identifier, "C0:00:00:00:00:02");
  CHECK(kestrin_reader_choose(application.reader, identifier) == KESTRIN_OK);
  kestrin_run_for(application.platform, 5);
  CHECK(strcmp(kestrin_reader_name(application.reader), "KVR-2") == 0);
  end(&application);
}

static void the_first_is_taken_where_any_will_do(void) {
  struct application application;
  const kestrin_reader_options options = {.struct_size = sizeof options, .take_first = true};
  begin(&application, "KVR-1", &options);
  CHECK(kestrin_simulated_add_reader(application.platform, "KVR-2") == KESTRIN_OK);
  kestrin_run_for(application.platform, 5);
  CHECK(kestrin_reader_phase(application.reader) == KESTRIN_PLUGGED_IN);
  end(&application);
}

static void a_reader_leaves_comes_back_and_is_closed(void) {
  struct application application;
  begin(&application, "KVR-0417", NULL);
  kestrin_run_for(application.platform, 5);
  application.transcript[0] = '\0';
  CHECK(kestrin_reader_leave(application.reader) == KESTRIN_OK);
  kestrin_run_for(application.platform, 5);
  CHECK(heard(&application, "phase 6|"));
  CHECK(!kestrin_reader_has_link(application.reader));
  CHECK(kestrin_reader_come_back(application.reader) == KESTRIN_OK);
  kestrin_run_for(application.platform, 5);
  CHECK(heard(&application, "phase 2|phase 3|frame 01 03 19|phase 4|"));
  CHECK(kestrin_reader_close(application.reader, NULL, NULL) == KESTRIN_OK);
  CHECK(kestrin_reader_close(application.reader, on_closed, &application) == KESTRIN_OK);
  CHECK(kestrin_reader_phase(application.reader) == KESTRIN_CLOSED);
  kestrin_run_for(application.platform, 5);
  CHECK(heard(&application, "closed|"));
  end(&application);
}

static void values_of_the_q62t_family_come_as_they_are(void) {
  struct application application;
  begin(&application, "KVR-Q62T 0012", NULL);
  kestrin_run_for(application.platform, 5);
  application.transcript[0] = '\0';
  kestrin_reader_send(application.reader, command, sizeof command, NULL, NULL);
  kestrin_run_for(application.platform, 1);
  CHECK(heard(&application, "value 8|"));
  end(&application);
}

static void a_reader_may_be_released_from_inside_a_handler(void) {
  struct application application;
  begin(&application, "KVR-0417", NULL);
  application.drops = true;
  application.drop_at = KESTRIN_LINKING_UP;
  kestrin_run_for(application.platform, 5);
  CHECK(heard(&application, "seen|phase 2|phase 3|"));
  end(&application);
}

static void a_reader_outlives_its_platforms_release(void) {
  struct application application;
  begin(&application, "KVR-0417", NULL);
  kestrin_run_for(application.platform, 5);
  kestrin_platform_release(application.platform);
  CHECK(kestrin_reader_phase(application.reader) == KESTRIN_PLUGGED_IN);
  kestrin_reader_release(application.reader);
}

static void frames_are_taken_apart(void) {
  const uint8_t right[] = {0xbb, 0x00, 0x03, 0x00, 0x01, 0xb1, 0x7e, 0x65, 0x97};
  const uint8_t wrong[] = {0xbb, 0x00, 0x03, 0x00, 0x01, 0xb1, 0x7f, 0x65, 0x97};
  kestrin_frame frame = {.struct_size = sizeof frame};
  kestrin_frame_error error = {.struct_size = sizeof error};
  CHECK(kestrin_frame_parse(right, sizeof right, &frame, &error) == KESTRIN_OK);
  CHECK(frame.type == 0x00 && frame.code == 0x03 && frame.payload_length == 1);
  CHECK(frame.payload == right + 5 && frame.bytes == right && frame.length == sizeof right);
  CHECK(kestrin_frame_parse(wrong, sizeof wrong, &frame, &error) == KESTRIN_NO_FRAME);
  CHECK(error.field == KESTRIN_FIELD_END_MARK && error.offset == 6 && !error.incomplete);
  CHECK(strcmp(kestrin_last_error(), "not a whole frame: its end mark is 7F, not 7E") == 0);
  CHECK(kestrin_frame_parse(right, 8, &frame, &error) == KESTRIN_NO_FRAME);
  CHECK(error.field == KESTRIN_FIELD_CRC && error.offset == 8 && error.incomplete);
  CHECK(kestrin_frame_parse(right, 8, &frame, NULL) == KESTRIN_NO_FRAME);
  CHECK(kestrin_frame_parse(NULL, 0, &frame, &error) == KESTRIN_NO_FRAME);
  CHECK(error.field == KESTRIN_FIELD_PREAMBLE && error.incomplete);
  CHECK(kestrin_frame_parse(NULL, 1, &frame, &error) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_frame_parse(right, sizeof right, NULL, &error) == KESTRIN_INVALID_ARGUMENT);
  frame.struct_size = 0;
  CHECK(kestrin_frame_parse(right, sizeof right, &frame, &error) == KESTRIN_INVALID_ARGUMENT);
  CHECK(strstr(kestrin_last_error(), "kestrin_frame.struct_size is 0") != NULL);
  frame.struct_size = sizeof frame;
  error.struct_size = 1;
  CHECK(kestrin_frame_parse(right, sizeof right, &frame, &error) == KESTRIN_INVALID_ARGUMENT);
}

static void a_platform_records_what_its_readers_do(void) {
  struct application application;
  char path[] = "/tmp/kestrin-c-recording-XXXXXX";
  char content[65536];
  FILE* file = NULL;
  size_t length = 0;
  const int descriptor = mkstemp(path);
  CHECK(descriptor >= 0);
  memset(&application, 0, sizeof application);
  application.platform = kestrin_platform_create_simulated(true, 1);
  CHECK(!kestrin_recording_is_whole(application.platform));
  CHECK(kestrin_record(application.platform, "/no folder/file") == KESTRIN_FAILED);
  CHECK(strcmp(kestrin_last_error(), "'/no folder/file' cannot be written") == 0);
  CHECK(kestrin_record(application.platform, path) == KESTRIN_OK);
  CHECK(kestrin_record(application.platform, path) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_simulated_add_reader(application.platform, "KVR-0417") == KESTRIN_OK);
  application.reader =
      kestrin_reader_create(application.platform, NULL, &all_handlers, &application);
  kestrin_run_for(application.platform, 5);
  CHECK(kestrin_reader_phase(application.reader) == KESTRIN_PLUGGED_IN);
  CHECK(kestrin_recording_is_whole(application.platform));
  end(&application);
  file = fopen(path, "r");
  CHECK(file != NULL);
  length = file != NULL ? fread(content, 1, sizeof content - 1, file) : 0;
  content[length] = '\0';
  if (file != NULL) fclose(file);
  remove(path);
  CHECK(strstr(content, "\"format\":\"kestrin-recording\"") != NULL);
  CHECK(strstr(content, "\"operation\":\"connectBLE\"") != NULL);
  CHECK(strstr(content, "\"plugged\":true") != NULL);
}

static void null_and_unknown_sizes_are_errors(void) {
  kestrin_platform* const platform = kestrin_platform_create_simulated(true, 1);
  kestrin_reader_handlers handlers = all_handlers;
  kestrin_reader_options options = {.struct_size = 3};
  kestrin_reader* reader = NULL;
  CHECK(kestrin_reader_create(NULL, NULL, &handlers, NULL) == NULL);
  CHECK(kestrin_reader_create(platform, NULL, NULL, NULL) == NULL);
  CHECK(kestrin_reader_create(platform, &options, &handlers, NULL) == NULL);
  CHECK(strstr(kestrin_last_error(), "kestrin_reader_options.struct_size is 3") != NULL);
  handlers.struct_size = 0;
  CHECK(kestrin_reader_create(platform, NULL, &handlers, NULL) == NULL);
  CHECK(strstr(kestrin_last_error(), "kestrin_reader_handlers.struct_size is 0") != NULL);
  CHECK(kestrin_record(NULL, "x") == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_record(platform, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(!kestrin_recording_is_whole(NULL));
  CHECK(kestrin_reader_phase(NULL) == KESTRIN_CLOSED);
  CHECK(kestrin_reader_name(NULL) == NULL && kestrin_reader_identifier(NULL) == NULL);
  CHECK(!kestrin_reader_has_link(NULL));
  CHECK(kestrin_reader_each_seen(NULL, false, each_seen, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_choose(NULL, "x") == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_send(NULL, command, 8, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_exchange(NULL, command, 8, 1, on_answer, NULL, NULL) ==
        KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_forget(NULL, 1) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_leave(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_come_back(NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_close(NULL, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  kestrin_reader_release(NULL);
  handlers = (kestrin_reader_handlers){.struct_size = sizeof handlers};
  reader = kestrin_reader_create(platform, NULL, &handlers, NULL);
  CHECK(reader != NULL);
  CHECK(kestrin_simulated_add_reader(platform, "KVR-0417") == KESTRIN_OK);
  CHECK(kestrin_reader_each_seen(reader, false, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_choose(reader, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_send(reader, NULL, 1, NULL, NULL) == KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_exchange(reader, command, 8, 1, NULL, NULL, NULL) ==
        KESTRIN_INVALID_ARGUMENT);
  CHECK(kestrin_reader_exchange(reader, NULL, 1, 1, on_answer, NULL, NULL) ==
        KESTRIN_INVALID_ARGUMENT);
  kestrin_run_for(platform, 5);
  CHECK(kestrin_reader_phase(reader) == KESTRIN_PLUGGED_IN);
  kestrin_reader_release(reader);
  kestrin_platform_release(platform);
}

int main(void) {
  static void (*const cases[])(void) = {
      a_reader_is_found_plugged_in_and_brought_back,
      frames_are_sent_and_exchanged,
      a_reader_that_is_not_there_is_trouble_and_the_end_where_it_is_to_be,
      limits_are_thirty_seconds_and_none_below_zero,
      several_are_refused_until_one_is_chosen,
      the_first_is_taken_where_any_will_do,
      a_reader_leaves_comes_back_and_is_closed,
      values_of_the_q62t_family_come_as_they_are,
      a_reader_may_be_released_from_inside_a_handler,
      a_reader_outlives_its_platforms_release,
      frames_are_taken_apart,
      a_platform_records_what_its_readers_do,
      null_and_unknown_sizes_are_errors,
  };
  const size_t count = sizeof cases / sizeof *cases;
  for (size_t i = 0; i < count; ++i) cases[i]();
  if (failures == 0) printf("%zu cases hold\n", count);
  return failures == 0 ? 0 : 1;
}
