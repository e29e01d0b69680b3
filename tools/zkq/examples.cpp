#include "examples.h"

#include <string>
#include <vector>

namespace {

/// The command that an example shows is named by its first words.
struct Examples {
    const char* command;
    std::vector<const char*> lines;
};

const std::vector<Examples>& AllExamples()
{
    static const std::vector<Examples> examples = {
        {"ini get", {"zkq ini get server.ini Server Port", "zkq ini get server.ini Server Timeout --default 30"}},
        {"ini set", {"zkq ini set server.ini Server Port 8080", "zkq ini set server.ini Server Offset -- -5"}},
        {"ini del", {"zkq ini del server.ini Server Name", "zkq ini del server.ini Paths"}},
        {"ini sections", {"zkq ini sections server.ini"}},
        {"ini keys", {"zkq ini keys server.ini Server"}},
        {"log tail", {"zkq log tail -n 20 server.log", "zkq log tail -f --gbk server.log"}},
        {"log write",
         {"zkq log write --dir logs --project server --level error disk is full",
          "zkq log write --project nightly --force backup done"}},
        {"log level", {"zkq log level --dir logs server", "zkq log level --dir logs server warn,error"}},
        {"file copy", {"zkq file copy server.ini backup.ini", "zkq file copy --no-clobber server.ini logs/"}},
        {"file mkdirs", {"zkq file mkdirs spool/in/new"}},
        {"file rmtree", {"zkq file rmtree --yes spool"}},
        {"file temp", {"zkq file temp report-"}},
        {"file link", {"zkq file link server.ini current.ini"}},
        {"file stat", {"zkq file stat server.ini site"}},
        {"packet dump", {"zkq packet dump server.packet", "zkq packet dump --oid server.packet"}},
        {"packet make",
         {"zkq packet make -o list.packet text:alpha int:8080 @key.bin",
          "zkq packet make --oid -o tagged.packet 7=text:alpha 8=int:8080"}},
        {"conv",
         {"zkq conv --from GBK --to UTF-8 names.txt -o names.utf8", "zkq conv --from UTF-8 --to UCS-2LE < names.utf8"}},
        {"b64 encode", {"zkq b64 encode key.bin", "zkq b64 encode --columns 0 key.bin -o key.b64"}},
        {"b64 decode", {"zkq b64 decode key.b64 -o key.bin"}},
        {"md5", {"zkq md5 server.ini key.bin > sums", "zkq md5 --check --quiet sums"}},
        {"z compress", {"zkq z compress server.log -o server.log.z"}},
        {"z decompress", {"zkq z decompress server.log.z"}},
        {"cab make", {"zkq cab make site.cab server.ini site", "zkq cab make -q --no-top-files below.cab site"}},
        {"cab list", {"zkq cab list site.cab", "zkq cab list -l site.cab"}},
        {"cab extract", {"zkq cab extract site.cab -d copy", "zkq cab extract site.cab css/main.css"}},
        {"cab test", {"zkq cab test site.cab"}},
        {"xml get", {"zkq xml get cfg.xml '/cfg/server[id=1]/port'", "zkq xml get cfg.xml /cfg/server --attribute id"}},
        {"xml ls", {"zkq xml ls cfg.xml", "zkq xml ls cfg.xml '/cfg/server[id=1]'"}},
        {"xml fmt", {"zkq xml fmt cfg.xml", "zkq xml fmt cfg.xml -o cfg.xml"}},
        {"xml set",
         {"zkq xml set cfg.xml '/cfg/server[id=1]/port' 8081",
          "zkq xml set cfg.xml '/cfg/server[id=2]' standby --attribute role"}},
        {"xml add", {"zkq xml add cfg.xml '/cfg/server[id=1]' alias alpha"}},
        {"xml del", {"zkq xml del cfg.xml '/cfg/server[id=1]/alias'"}},
        {"xml rename", {"zkq xml rename cfg.xml '/cfg/server[id=1]/port' listen"}},
        {"xml copy", {"zkq xml copy cfg.xml '/cfg/server[id=1]/listen' cfg.xml '/cfg/server[id=2]'"}},
        {"json get", {"zkq json get unit.json server/host", "zkq json get unit.json key --hex > key.bin"}},
        {"json set",
         {"zkq json set unit.json server/host example.org", "zkq json set unit.json server/port 8080 --int"}},
        {"json fmt", {"zkq json fmt unit.json", "zkq json fmt unit.json -o unit.json"}},
        {"json array", {"zkq json array unit.json rows"}},
        {"cert show", {"zkq cert show root.pem", "zkq cert show - < root.pem"}},
        {"cert field",
         {"zkq cert field --name subject:CN root.pem", "zkq cert field --name 2.5.29.15 root.pem",
          "zkq cert field --name key --raw root.pem > key.bin"}},
        {"cert der", {"zkq cert der root.pem -o root.der"}},
        {"der dump", {"zkq der dump record.der"}},
        {"http get",
         {"zkq http get http://127.0.0.1:8080/status", "zkq http get 'http://[::1]:8080/files/1' -o downloads/"}},
        {"http post",
         {"zkq http post 127.0.0.1:8080/form --data 'name=Alpha&port=80'",
          "zkq http post 127.0.0.1:8080/units --type application/json --data @unit.json"}},
        {"http url", {"zkq http url 'http://[::1]:8080/files/1'"}},
        {"ping", {"zkq ping 127.0.0.1 --count 2", "zkq ping ::1 --count 1 --size 1000"}},
        {"net addr", {"zkq net addr"}},
        {"net lookup", {"zkq net lookup localhost", "zkq net lookup --reverse 127.0.0.1"}},
        {"net serve", {"zkq net serve --port 7007", "zkq net serve --host ::1 --port 7008 --count 1"}},
        {"net connect", {"echo hello | zkq net connect 127.0.0.1 7007", "zkq net connect ::1 7008 < request > answer"}},
        {"net cards", {"zkq net cards"}},
        {"net set", {"zkq net set eth0 192.0.2.7 255.255.255.0", "zkq net set eth0 0.0.0.0 0.0.0.0"}},
        {"net bridges", {"zkq net bridges"}},
        {"net bridge add", {"zkq net bridge add br0", "zkq net bridge add br1 eth0 eth1"}},
        {"net bridge stp", {"zkq net bridge stp br0 on"}},
        {"net bridge del", {"zkq net down br0 && zkq net bridge del br0"}},
        {"net up", {"zkq net up eth0"}},
        {"net down", {"zkq net down eth0"}},
        {"net route set", {"zkq net route set eth0 192.0.2.1", "zkq net route set eth0 2001:db8::1"}},
        {"net route del", {"zkq net route del eth0"}},
        {"proc run", {"zkq proc run --timeout 10 -- tar -cf backup.tar site", "zkq proc run --no-wait sleep 1000"}},
        {"proc find", {"zkq proc find /usr/bin/sleep 1000"}},
        {"proc kill", {"zkq proc kill /usr/bin/sleep 1000"}},
        {"proc lock",
         {"zkq proc lock --path logs --create nightly -- tar -cf backup.tar site",
          "zkq proc lock --path logs nightly"}},
        {"ipc sem ls", {"zkq ipc sem ls"}},
        {"ipc sem create", {"zkq ipc sem create 0x5a4b0001 --units 3"}},
        {"ipc sem lock", {"zkq ipc sem lock 0x5a4b0001 --timeout 10 -- cp -a site backup"}},
        {"ipc sem rm", {"zkq ipc sem rm 0x5a4b0001"}},
        {"ipc shm ls", {"zkq ipc shm ls"}},
        {"ipc shm create", {"zkq ipc shm create 0x5a4b0002 65536"}},
        {"ipc shm rm", {"zkq ipc shm rm 0x5a4b0002"}},
        {"ipc block create", {"zkq ipc block create 0x5a4b0003 0x5a4b0004 4096"}},
        {"ipc block lock", {"zkq ipc block lock 0x5a4b0003 0x5a4b0004 --no-wait true"}},
        {"ipc block rm", {"zkq ipc block rm 0x5a4b0003 0x5a4b0004"}},
    };
    return examples;
}

} // namespace

void AddExamples(CLI::App& app)
{
    for (const Examples& examples : AllExamples()) {
        CLI::App* command = &app;
        for (const std::string& word : CLI::detail::split(examples.command, ' '))
            command = command->get_subcommand(word);
        std::string text = examples.lines.size() == 1 ? "Example:\n" : "Examples:\n";
        for (const char* line : examples.lines)
            text += std::string("  ") + line + "\n";
        const std::string rest = command->get_footer();
        command->footer(rest.empty() ? text : text + "\n" + rest);
    }
}
