#include <zorv/zorv.h>

int main(void)
{
    libzorv_log_use_syslog = 0;
    libzorv_log(6, "demo", "main", "%s", zorv_git_hash);
}
