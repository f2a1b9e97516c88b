#include <stdio.h>
#include <zorv/zorv.h>

int main(void)
{
    cfg_entry *cfg = parse("/tmp/system.cfg");
    printf("radio 1 is on channel %d\n", get_int32(cfg, -1, "radio.%d.channel", 1));
    free_cfg(cfg);
    return 0;
}
