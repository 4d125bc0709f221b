# Turns the compiler's dump of classes (-fdump-lang-class) into what plugins that are already built rely on:
# for each class in the variable "classes", its bases and the order of its virtual tables, and with the variable "data"
# how many bytes it adds to its first base, the gap in front of them included. Offsets and addresses are left out.

/^(Vtable for|Class) / {
    kind = $1
    name = $NF
    table = -1
    next
}
/^$/ {
    kind = ""
    next
}

# An entry of a virtual table: an offset, then what stands there.
kind == "Vtable" && /^[0-9]+ / {
    entry = $0
    sub(/^[0-9]+ +/, "", entry)
    sub(/^\(int \(\*\)\(\.\.\.\)\)/, "", entry)
    if (entry ~ /^\(& _ZTI/) {
        # Type information stands right before the functions; the entry before it is an offset.
        ++table
        if (table > 0)
            --count[name, table - 1]
        count[name, table] = 0
        tables[name] = table + 1
    } else if (table >= 0) {
        entries[name, table, count[name, table]++] = entry
    }
}

# A base: its name, an address in parentheses, its offset.
kind == "Class" && /^ *[A-Za-z_:<>]+ \(0x/ {
    if ($1 != name) {
        bases[name] = bases[name] "  base " $1 "\n"
        if (!(name in first))
            first[name] = $1
    }
}
# Without the padding behind it, which a deriving class may use.
kind == "Class" && /^ *base size=/ {
    split($2, part, "=")
    size[name] = part[2]
}
kind == "Class" {
    known[name] = 1
}

function readable(entry)
{
    # Thunks come mangled behind the name of their class.
    sub(/^[A-Za-z_]+::_Z/, "_Z", entry)
    return entry
}

END {
    n = split(classes, list, " ")
    for (c = 1; c <= n; ++c) {
        name = list[c]
        if (!known[name])
            continue
        printf "class %s\n%s", name, bases[name]
        if (data)
            print "  own bytes: " size[name] - size[first[name]]
        probe = name
        sub(/<.*>$/, "", probe)
        probe = probe "Probe"
        for (t = 0; t < tables[name]; ++t) {
            print t == 0 ? "  virtual table" : "  virtual table of a further base"
            total = count[name, t]
            if (count[probe, t] > total)
                total = count[probe, t]
            for (i = 0; i < total; ++i) {
                entry = entries[name, t, i]
                probed = entries[probe, t, i]
                if (i >= count[name, t])
                    entry = "added by a deriving class: " readable(probed)
                else if (entry == "__cxa_pure_virtual")
                    entry = "pure: " readable(probed)
                else if (entry == "0")
                    entry = readable(probed)
                else
                    entry = readable(entry)
                print "    " entry
            }
        }
        print ""
    }
}
