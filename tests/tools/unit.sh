# What the transcripts of zorvctl stand on: sourced in front of each by transcripts_test.cpp, with
# the tree's and the build's folder in $source and $build.
# shellcheck shell=sh
PATH=$build/tools/zorvctl:$PATH
mkdir /tmp/work
cd /tmp/work || exit

# kernel_proc: the kernel's own /proc, in place of one to fill.
kernel_proc() {
    umount /proc
}

# cloud: runs the cloud host by the script on standard input, with its requests in cloud/received.
cloud() {
    mkdir -p cloud
    cat >cloud/script
    mkfifo cloud/ready
    "$build/sim/libexec/zorv-sim/zorv-cloud" cloud/script cloud >cloud/ready 2>&1 &
    read -r word <cloud/ready
    [ "$word" = ready ] || exit
    cat cloud/ca.pem >/etc/ssl/certs/ca-certificates.crt
    cat cloud/hosts >>/etc/hosts
}
