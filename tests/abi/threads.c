/* Four threads, each with objects of its own, in the families that any thread may use; for the
 * thread sanitizer above all. Exit status 1: a result differs from that of the first round. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <curl/curl.h>
#include <jansson.h>
#include <zorv/zorv.h>

enum { THREADS = 4, ROUNDS = 20 };

static char path[] = "/tmp/zorv-threads.XXXXXX";

static void note(buffer *all, const char *text)
{
    all->append(all, text ? text : "-", strlen(text ? text : "-") + 1);
}

static void crypto(buffer *all)
{
    uint8_t key[16] = "0123456789abcde", block[64] = "a secret", digest[32];
    char text[200];
    aes_cbc_encrypt_128(key, key, block, sizeof block);
    sha256(block, sizeof block, digest);
    uchar2hex(digest, sizeof digest, text, sizeof text);
    note(all, text);
    base64rfc_encode(text, block, sizeof block);
    note(all, text);
    gen_rand_hex(text, 20); /* differs, so it is not noted */
}

static void texts(buffer *all)
{
    char text[200];
    cfg_entry *cfg = parse(path);
    note(all, get_value(cfg, "none", "radio.%d.name", 1));
    note(all, freadline(path, text, sizeof text, "none"));
    free_cfg(cfg);
    url *parsed = url_parse("http://me@127.0.0.1:9/a?b");
    snprintf(text, sizeof text, "%d", url_resolve(parsed, NULL));
    note(all, text);
    dump_addrinfo(&parsed->addr);
    note(all, parsed->host);
    url_destroy(parsed);
    json_t *json = json_pack("{s:i}", "a", 1);
    zorv_json_add_long(json, "a", 2);
    snprintf(text, sizeof text, "%ld", zorv_json_read_long(json, "a", 0));
    note(all, text);
    json_decref(json);
}

static void processes(buffer *all)
{
    char text[200];
    exec_command *command = exec_create("/bin/true", "x", NULL);
    forkexec(command->argv);
    exec_destroy(command);
    popen_get_output("echo out", text, sizeof text);
    note(all, text);
    snprintf(text, sizeof text, "%d", curl_simple_get("http://127.0.0.1:9/", 0, NULL, NULL));
    note(all, text);
}

static void *work(void *unused)
{
    buffer *first = buffer_create();
    void *failed = unused;
    for (int i = 0; i < ROUNDS && !failed; ++i) {
        buffer *all = i == 0 ? first : buffer_create();
        crypto(all);
        texts(all);
        processes(all);
        if (all != first) {
            if (all->length(all) != first->length(first) ||
                memcmp(all->data(all), first->data(first), first->length(first)) != 0)
                failed = path;
            buffer_destroy(all);
        }
    }
    buffer_destroy(first);
    return failed;
}

int main(void)
{
    pthread_t threads[THREADS];
    const int fd = mkstemp(path);
    FILE *const file = fd < 0 ? NULL : fdopen(fd, "w");
    if (!file)
        return 2;
    fputs("radio.1.name=ath0\nradio.1.channel=36\n", file);
    fclose(file);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    libzorv_log_use_syslog = 0;
    libzorv_log_level = 16;
    stderr = fopen("/dev/null", "w"); /* for the log; the sanitizer has its descriptor */
    if (!stderr)
        return 2;
    for (int i = 0; i < THREADS; ++i)
        pthread_create(&threads[i], NULL, work, NULL);
    int status = 0;
    for (int i = 0; i < THREADS; ++i) {
        void *failed;
        pthread_join(threads[i], &failed);
        status |= failed != NULL;
    }
    remove(path);
    return status;
}
