/* send CARD.vcf NUMBER [DEVICE]: hands in a card and waits until it is sent.
 * cc send.c -o send $(pkg-config --cflags --libs zpd-client) */
#include <stdio.h>
#include <zpd/client.h>

static int failed(const zpd_client_t* client, const char* what) {
    fprintf(stderr, "%s: %s\n", what, zpd_client_error(client));
    return 1;
}

static int send_card(zpd_client_t* client, const char* path, const char* number) {
    char card[32640]; /* the largest that 255 datagrams hold */
    FILE* file = fopen(path, "rb");
    size_t size = file != NULL ? fread(card, 1, sizeof card, file) : 0;
    int whole = file != NULL && feof(file);
    zpd_options_t options = ZPD_OPTIONS_INIT;
    zpd_message_t* message = NULL;
    uint64_t id = 0;
    int over = 0;

    if (file != NULL)
        fclose(file);
    if (!whole)
        return fprintf(stderr, "%s: cannot be read, or is too large\n", path), 1;
    options.file = path;
    if (zpd_send(client, card, size, number, &options, &id) != ZPD_OK)
        return failed(client, path);
    while (!over) {
        if (zpd_wait(client, id, 60 * 1000, &message) != ZPD_OK)
            return failed(client, path);
        printf("message %llu: %s, %u of %u datagrams sent. %s\n", (unsigned long long)id,
               zpd_message_state_text(message), zpd_message_sent(message), zpd_message_datagrams(message),
               zpd_message_reason(message));
        over = zpd_message_is_over(message) ? 1 + (zpd_message_state(message) == ZPD_MESSAGE_SENT) : 0;
        zpd_message_free(message);
    }
    return over == 2 ? 0 : 1;
}

int main(int count, char** arguments) {
    zpd_client_t* client = NULL;
    int status = 2;

    if (count < 3)
        return fprintf(stderr, "usage: send CARD.vcf NUMBER [DEVICE]\n"), status;
    client = zpd_client_new(count > 3 ? arguments[3] : NULL);
    status = send_card(client, arguments[1], arguments[2]);
    zpd_client_free(client);
    return status;
}
