// The command line: see cli.h.
#include "morvane/cli.h"

#include <sys/stat.h>
#include <unistd.h>

#include <functional>
#include <iostream>
#include <string>

#include <CLI/CLI.hpp>

#include "er/er.h"
#include "morvane/convert.h"
#include "morvane/directory.h"
#include "morvane/failure.h"
#include "morvane/fsck.h"
#include "morvane/home.h"
#include "morvane/init.h"
#include "morvane/item.h"
#include "morvane/printer.h"
#include "morvane/queue.h"
#include "morvane/show.h"
#include "morvane/text.h"
#include "os/os.h"

#ifndef MORVANE_VERSION
    #define MORVANE_VERSION "unknown"
#endif

namespace morvane {
namespace {

constexpr int kMisunderstood = 2;
constexpr mode_t kPrivate = 0077;  // what the tool makes holds mail

// Everything the command line can say; `work` is the command that was chosen.
struct Request {
    HomeChoice home;
    InitOptions init;
    ConvertOptions convert;
    QueueOptions queue;
    ShowOptions show;
    ItemOptions item;
    FsckOptions fsck;
    DirectoryOptions directory;
    bool json = false, hex = false;
    bool needs_home = true;
    std::function<int(Printer&, const Screen&)> work;
};

// The subcommand `name`; `work` is what it does.
CLI::App* command(CLI::App& parent, Request& request, const char* name, const char* what,
                  std::function<int(Printer&, const Screen&)> work) {
    CLI::App* sub = parent.add_subcommand(name, what);
    sub->callback([&request, work = std::move(work)] { request.work = work; });
    return sub;
}

void add_init(CLI::App& app, Request& r) {
    CLI::App* sub = command(app, r, "init", "lay down a home; what is there already is kept",
                            [&r](Printer& out, const Screen& screen) { return init(r.init, out, screen); });
    sub->add_option("--delimiter", r.init.delimiter, "name delimiter of the system, / unless given")->type_name("C");
    sub->preparse_callback([&r](std::size_t) { r.needs_home = false; });
}

void add_convert(CLI::App& app, Request& r) {
    CLI::App* sub =
        command(app, r, "convert", "run mail files through the gateway", [&r](Printer& out, const Screen& screen) {
            r.convert.system = r.home.home.empty() ? r.home.system : "";
            return convert(r.convert, out, screen);
        });
    sub->add_option("--from", r.convert.from, "envelope sender, <> for none; otherwise after the message")
        ->type_name("ADDRESS");
    sub->add_option("--to", r.convert.to, "envelope recipient, may be repeated; otherwise after the message")
        ->type_name("ADDRESS")
        ->take_all()
        ->allow_extra_args(false);
    sub->add_option("-j,--jobs", r.convert.jobs, "gateway processes side by side")
        ->type_name("N")
        ->check(CLI::Range(1, 256));
    sub->add_option("--gateway", r.convert.gateway, "the gateway's program, unless the one installed with this")
        ->type_name("FILE");
    sub->add_option("files", r.convert.files, ".eml, mbox, Maildir, or folders of these")
        ->required()
        ->type_name("FILE|DIR");
}

void add_queue(CLI::App& app, Request& r) {
    CLI::App* group = app.add_subcommand("queue", "what waits for the router");
    group->require_subcommand(1)->fallthrough();
    r.queue.queue = kRouterQueue;
    group->add_option("--queue", r.queue.queue, "the queue, ROUTER unless given")->type_name("NAME");
    struct Row {
        const char* name;
        const char* what;
        int (*work)(const QueueOptions&, Printer&, const Screen&);
        bool entry;
    };
    constexpr Row rows[] = {
        {"list", "the entries in order of service", queue_list, false},
        {"take", "move an entry, the next one unless named, to cur/", queue_take, true},
        {"done", "delete a taken entry with its messages", queue_done, true},
        {"remove", "delete a waiting entry with its messages", queue_remove, true},
        {"export", "copy an entry with all its files into a folder", queue_export, true},
    };
    for (const Row& row : rows) {
        CLI::App* sub =
            command(*group, r, row.name, row.what, [&r, work = row.work](Printer& out, const Screen& screen) {
                r.queue.json = r.json;
                return work(r.queue, out, screen);
            });
        sub->fallthrough();
        sub->add_flag("--json", r.json, "for machines");
        if (row.entry)
            sub->add_option("entry", r.queue.entry, "an entry's name, or how one name alone begins or ends")
                ->type_name("ENTRY");
        if (row.work == queue_export) sub->add_option("--to", r.queue.to, "the folder")->type_name("DIR")->required();
    }
}

void add_show(CLI::App& app, Request& r) {
    CLI::App* sub =
        command(app, r, "show", "a message as a tree of records and parts", [&r](Printer& out, const Screen& screen) {
            r.show.form = r.json ? Form::json : r.hex ? Form::hex : Form::tree;
            return show(r.show, out, screen);
        });
    CLI::Option* json = sub->add_flag("--json", r.json, "for machines");
    sub->add_flag("--hex", r.hex, "every byte of the record files, annotated")->excludes(json);
    sub->add_flag("--all", r.show.all, "also what is left out of long lists and objects");
    sub->add_option("--queue", r.show.queue, "the queue, ROUTER unless given")->type_name("NAME");
    sub->add_option("what", r.show.what, "entry, file id or record file; the message queued last unless given")
        ->type_name("ID|FILE");
}

void add_item(CLI::App& app, Request& r) {
    CLI::App* group = app.add_subcommand("item", "files of the item store");
    group->require_subcommand(1)->fallthrough();
    CLI::App* sub = command(*group, r, "cat", "write a file's bytes", [&r](Printer& out, const Screen& screen) {
        out.flush();
        r.item.queue = kRouterQueue;
        return cat_item(r.item, STDOUT_FILENO, screen);
    });
    sub->fallthrough();
    sub->add_flag("--raw", r.item.raw, "control characters, too, to a terminal");
    sub->add_option("ref", r.item.what, "file id, path, or MESSAGE#k for its k-th attached file")
        ->type_name("REF")
        ->required();
}

void add_fsck(CLI::App& app, Request& r) {
    CLI::App* sub = command(app, r, "fsck", "check that the home is whole",
                            [&r](Printer& out, const Screen& screen) { return fsck(r.fsck, out, screen); });
    sub->add_flag("--repair", r.fsck.repair, "delete what is reclaimable");
    sub->add_flag("--verbose", r.fsck.verbose, "name every reclaimable file");
}

void add_directory(CLI::App& app, Request& r) {
    CLI::App* group = app.add_subcommand("directory", "the embedded directory of native names");
    group->require_subcommand(1)->fallthrough();
    const auto add = [&](const char* name, const char* what,
                         int (*work)(const DirectoryOptions&, Printer&, const Screen&)) {
        CLI::App* sub = command(*group, r, name, what, [&r, work](Printer& out, const Screen& screen) {
            r.directory.json = r.json;
            return work(r.directory, out, screen);
        });
        sub->fallthrough();
        return sub;
    };
    CLI::App* import = add("import", "read entries from LDIF or CSV", directory_import);
    import->add_option("name", r.directory.name, "the directory")->type_name("NAME")->required();
    import->add_option("file", r.directory.file, "the file, - for standard input")->type_name("FILE")->required();
    import->add_option("--format", r.directory.format, "ldif or csv; otherwise told by the text");
    import->add_flag("--replace", r.directory.replace, "empty the directory first");
    CLI::App* write = add("export", "write the entries as LDIF or CSV", directory_export);
    write->add_option("name", r.directory.name, "the directory")->type_name("NAME")->required();
    write->add_option("file", r.directory.file, "the file, standard output unless given")->type_name("FILE");
    write->add_option("--format", r.directory.format, "ldif or csv; otherwise after the file's name, ldif");
    CLI::App* lookup = add("lookup", "the entries that have a value", directory_lookup);
    lookup->add_option("name", r.directory.name, "the directory")->type_name("NAME")->required();
    lookup->add_option("attribute", r.directory.attribute, "for example mail")->type_name("ATTRIBUTE")->required();
    lookup->add_option("value", r.directory.value, "case is ignored")->type_name("VALUE")->required();
    lookup->add_flag("--json", r.json, "for machines");
    add("list", "the directories there are", directory_list)->add_flag("--json", r.json, "for machines");
}

// A record file can be looked at where no home is.
bool names_file(const std::string& what) {
    return what.find('/') != std::string::npos || (!what.empty() && os_fexists(what));
}

int carry_out(Request& request) {
    Printer out(STDOUT_FILENO);
    const Screen screen = screen_of(STDOUT_FILENO);
    const auto fail = [&](const std::string& text) {
        er_TryIgnoring([&] { out.flush(); });  // what was found before the failure comes first
        std::cerr << "morvane: " << harmless(text, screen_of(STDERR_FILENO)) << std::endl;
        return 1;
    };
    try {
        choose_home(request.home);
        const bool by_path = names_file(request.show.what) || names_file(request.item.what);
        if (request.needs_home && !by_path) require_home();
        load_name_delimiter();
        const int status = request.work(out, screen);
        out.flush();
        return status;
    } catch (const er_Escape& escape) {
        return fail(told(escape));
    } catch (const std::exception& error) {
        return fail(error.what());
    }
}

}  // namespace

int run(int argc, char** argv) {
    ::umask(kPrivate);
    er_Init("morvane", 5);
    Request request;
    CLI::App app("The operator's tool of the Morvane inbound mail gateway", "morvane");
    app.set_version_flag("--version", "morvane " MORVANE_VERSION);
    app.require_subcommand(1)->fallthrough();
    app.add_option("--home", request.home.home, "home of the mail system")->type_name("DIR");
    app.add_option("-s,--system", request.home.system, "mail system, as systems.toml names it")->type_name("NAME");
    app.footer(
        "The home is that of -s, else $MORVANE_HOME, else the default of /etc/morvane/systems.toml, else "
        "/var/lib/morvane.");
    add_init(app, request);
    add_convert(app, request);
    add_queue(app, request);
    add_show(app, request);
    add_item(app, request);
    add_fsck(app, request);
    add_directory(app, request);
    for (CLI::App* sub : app.get_subcommands({})) sub->fallthrough();
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kMisunderstood;
    }
    return carry_out(request);
}

}  // namespace morvane
