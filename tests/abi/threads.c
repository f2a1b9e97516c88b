/* Four threads, each with objects of its own, in the families that any thread may use; for the
 * thread sanitizer above all. Exit status 1: a result differs from that of the first round. */
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <jansson.h>
#include <zorv/zorv.h>

enum { THREADS = 4, ROUNDS = 20 };

static char path[] = "/tmp/zorv-threads.XXXXXX";
static pthread_barrier_t all_here; /* the sanitizer takes no new threads behind a clone() */

/* What each family gives, as one text. */
static void use_all(char *text, size_t size)
{
    uint8_t key[16] = "0123456789abcde", block[64] = "a secret", digest[32];
    char hex[65], base64[200], line[80], output[80];
    aes_cbc_encrypt_128(key, key, block, sizeof block);
    sha256(block, sizeof block, digest);
    uchar2hex(digest, sizeof digest, hex, sizeof hex);
    base64rfc_encode(base64, block, sizeof block);
    gen_rand_hex(line, 20); /* differs */
    url *parsed = url_parse("http://me@127.0.0.1:9/a?b");
    const int resolved = url_resolve(parsed, NULL);
    dump_addrinfo(&parsed->addr);
    json_t *json = json_pack("{s:i}", "a", 1);
    zorv_json_add_long(json, "a", 2);
    exec_command *command = exec_create("/bin/true", "x", NULL);
    forkexec(command->argv);
    popen_get_output("echo out", output, sizeof output);
    cfg_entry *cfg = parse(path);
    snprintf(text, size, "%s %s %s %s %d %s %ld %s %d %s", hex, base64,
             get_value(cfg, "none", "radio.%d.name", 1), freadline(path, line, sizeof line, "none"),
             resolved, parsed->host, zorv_json_read_long(json, "a", 0), output,
             curl_simple_get("http://127.0.0.1:9/", 0, NULL, NULL), pluvo_get_board(0x7E8B)->name);
    free_cfg(cfg);
    exec_destroy(command);
    json_decref(json);
    url_destroy(parsed);
}

static void *work(void *unused)
{
    char first[500], text[500];
    void *failed = unused;
    pthread_barrier_wait(&all_here);
    use_all(first, sizeof first);
    for (int i = 1; i < ROUNDS && !failed; ++i) {
        use_all(text, sizeof text);
        failed = strcmp(text, first) == 0 ? NULL : path;
    }
    return failed;
}

int main(void)
{
    pthread_t threads[THREADS];
    const int fd = mkstemp(path);
    if (fd < 0 || dprintf(fd, "radio.1.name=ath0\nradio.1.channel=36\n") < 0)
        return 2;
    libzorv_log_use_syslog = 0;
    libzorv_log_level = 16;
    stderr = fopen("/dev/null", "we"); /* for the log; the sanitizer has its descriptor */
    pthread_barrier_init(&all_here, NULL, THREADS);
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
