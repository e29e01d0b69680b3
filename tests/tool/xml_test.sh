#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

sample() {
    cat >s.xml <<'END'
<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE cfg [ <!ENTITY x "it's > here"> <!-- ]> ' --> ]>
<!-- head -->
<cfg>
  <server id="1" kind='a "quoted" &amp; &lt;value>'>
    <name>Alpha &amp; &#x20AC; &unknown;</name>
    <port>8080</port>
    <!-- a comment -->
    <empty/>
  </server>
  <server id="2"><name><![CDATA[a<b && c]]></name><port > 9090
</port ></server>
</cfg>
<!-- tail -->
END
}

# Reading.
sample
run xml get s.xml '/cfg/server/port'
expect_output 8080
run xml get s.xml '/CFG/server[id=2]/port'
expect_output ' 9090' ''
run xml get s.xml '/cfg/server/name'
expect_output 'Alpha & € &unknown;'
run xml get s.xml '/cfg/server/name' --raw
expect_output 'Alpha &amp; &#x20AC; &unknown;'
run xml get s.xml '/cfg/server[id=2]/name'
expect_output 'a<b && c'
run xml get s.xml '/cfg/server[id=2]/name' --raw
expect_output 'a&lt;b &amp;&amp; c'
run xml get s.xml '/cfg/server' --attribute kind
expect_output 'a "quoted" & <value>'
run xml get s.xml '/cfg/server' --attribute KIND --raw
expect_output 'a &quot;quoted&quot; &amp; &lt;value>'
run xml get s.xml '/cfg/server/empty'
expect_output ''
run xml get s.xml /cfg
expect_failure 'cannot find a text of /cfg in s.xml: The element does not begin with one'
run xml get s.xml /cfg/none
expect_failure 'cannot find /cfg/none in s.xml: No such element, or this is no path'
run xml get s.xml '/cfg/server[id=3]'
expect_failure 'cannot find /cfg/server[id=3] in s.xml: No such element with these attributes'
run xml get s.xml /cfg/server --attribute none
expect_failure 's.xml: No attribute "none" at /cfg/server'

# Listing.
run xml ls s.xml
expect_output 'server  id="1" kind="a &quot;quoted&quot; &amp; &lt;value>"  (3 elements)' \
    'server  id="2"                                    (2 elements)'
run xml ls s.xml /cfg/server
expect_output 'name   Alpha & € &unknown;' 'port   8080' 'empty'
run xml ls s.xml /cfg/server --raw
expect_output 'name   Alpha &amp; &#x20AC; &unknown;' 'port   8080' 'empty'
run xml ls s.xml /cfg/server/port
expect_silence
run xml ls s.xml /cfg/none
expect_failure 'cannot find /cfg/none in s.xml: No such element, or this is no path'
{ printf '<r><a>'; printf 'é%.0s' {1..100}; printf '</a><b>x\n\ty</b></r>'; } >long.xml
run xml ls long.xml
expect_output "a  $(printf 'é%.0s' {1..28})..." 'b  x  y'

# Changing keeps what stands around: head, tail, comments, blanks in texts, the mode.
sample
chmod 640 s.xml
run xml set s.xml /cfg/server/port 80
expect_silence
run xml set s.xml '/cfg/server[id=2]' 'x"<&>y' --attribute note
expect_silence
run xml set s.xml '/cfg/server[id=3]/name' ' <new> '
expect_silence
run xml add s.xml '/cfg/server[id=3]' port
expect_silence
run xml add s.xml '/cfg/server[id=3]' extra '<b>1</b>' --raw
expect_silence
expect_equal "$(stat -c %a s.xml)" 640
expect_file s.xml '<?xml version="1.0" encoding="UTF-8"?>
<!DOCTYPE cfg [ <!ENTITY x "it'\''s > here"> <!-- ]> '\'' --> ]>
<!-- head -->
<cfg>
  <server id="1" kind="a &quot;quoted&quot; &amp; &lt;value>">
    <name>Alpha &amp; &#x20AC; &unknown;</name>
    <port>80</port>
    <!-- a comment -->
    <empty></empty>
  </server>
  <server id="2" note="x&quot;&lt;&amp;&gt;y">
    <name>a&lt;b &amp;&amp; c</name>
    <port> 9090
</port>
  </server>
  <server id="3">
    <name> &lt;new&gt; </name>
    <port></port>
    <extra><b>1</b></extra>
  </server>
</cfg>
<!-- tail -->'
run xml get s.xml '/cfg/server[id=3]/name'
expect_output ' <new> '
run xml get s.xml '/cfg/server[id=2]' --attribute note
expect_output 'x"<&>y'
run xml rename s.xml '/cfg/server[id=3]/extra' more
expect_silence
run xml del s.xml '/cfg/server[id=1]'
expect_silence
run xml ls s.xml /cfg
expect_output 'server  id="2" note="x&quot;&lt;&amp;&gt;y"  (2 elements)' 'server  id="3"                               (3 elements)'
run xml copy s.xml '/cfg/server[id=3]' s.xml '/cfg/server[id=2]'
expect_silence
run xml get s.xml '/cfg/server/server/name'
expect_output ' <new> '
run xml rename s.xml /cfg config
expect_silence
run xml ls s.xml /config/server/server
expect_output 'name   <new>' 'port' 'more  (1 element)'
run xml copy s.xml /config/none s.xml /config
expect_failure 'cannot find /config/none in s.xml: No such element, or this is no path'
run xml copy s.xml /config s.xml /none
expect_failure 'cannot find /none in s.xml: No such element, or this is no path'

# A new file.
run xml set new.xml '/a/b[k=v]/c' 1
expect_silence
expect_file new.xml $'<?xml version="1.0" encoding="UTF-8"?>\n<a>\n  <b k="v">\n    <c>1</c>\n  </b>\n</a>'
run xml add new2.xml /r a
expect_silence
run xml set new3.xml /r text
expect_silence
run xml get new3.xml /r
expect_output text
run xml set no/such/dir.xml /r text
expect_failure 'cannot write no/such/dir.xml: No such file or directory'

# Through a link, which stays; no other file is left behind.
ln -s s.xml link.xml
run xml set link.xml /config/new 1
expect_silence
[[ -L link.xml ]] || fail 'the link is gone'
run xml get link.xml /config/new
expect_output 1
expect_equal "$(find . -name '*.xml.*')" ''

# What cannot be kept is told, and the file is left alone.
while IFS='|' read -r text why; do
    printf '%s\n' "$text" >m.xml
    cp m.xml m.copy
    for command in 'set m.xml /r/b 1' 'set m.xml /r 1 --attribute k' 'add m.xml /r b 1' 'del m.xml /r/a' \
        'rename m.xml /r/a b' 'copy new.xml /a m.xml /r' 'copy m.xml /r m.xml /r' 'fmt m.xml' 'fmt m.xml -o m.xml'; do
        # shellcheck disable=SC2086
        run xml $command
        expect_failure "cannot change m.xml without harm (see --force): line 1: $why"
    done
    cmp m.xml m.copy
    run xml set m.xml /r/b 1 --force
    expect_silence
    run xml get m.xml /r/b
    expect_output 1
done <<'END'
<r>text <a/> more</r>|<r> of line 1 has text beside elements, and blanks around them change
<r>text<!-- c --></r>|<r> of line 1 has text beside elements, and blanks around them change
<r><a/><?php x ?></r>|a processing instruction is dropped
<r><a k='1' K='2'/></r>|the attributes k and K become one
END

# What is no XML is refused.
while IFS='|' read -r text why; do
    printf '%b' "$text" >bad.xml
    cp bad.xml bad.copy
    for command in 'get bad.xml /r' 'set bad.xml /r 1 --force'; do
        # shellcheck disable=SC2086
        run xml $command
        expect_failure "bad.xml: $why"
    done
    cmp bad.xml bad.copy
done <<'END'
text|line 1: there is text before the root element
<r>\n<a></b></r>|line 2: </b> ends <a>
<r>\n\n<a>|line 3: <a> of line 3 does not end
<r/>\n<r/>|line 2: something stands behind the root element
<r/>x|line 1: something stands behind the root element
<r k=v/>|line 1: a value in quotation marks is expected
<r k/>|line 1: "=" is expected
<r k="<"/>|line 1: "<" stands in a value
<r k="|line 1: a value does not end
<r><!-- |line 1: a comment does not end
<r><![CDATA[|line 1: a CDATA section does not end
<r><?x |line 1: a processing instruction does not end
<!DOCTYPE r [|line 1: the document type does not end
<r><!X></r>|line 1: a name is expected
<1/>|line 1: a name is expected
<r / >|line 1: ">" is expected
<r\0/>|It holds control bytes, and is no text that the library reads
<r>\01</r>|It holds control bytes, and is no text that the library reads
END

# What would make it no XML is refused.
printf '<r/>' >r.xml
for command in 'set r.xml /r/1 x' 'set r.xml /r/a[k=<] x' 'add r.xml /r a <b> --raw' 'set r.xml /r & --raw --attribute 1'; do
    # shellcheck disable=SC2086
    run xml $command
    expect_equal "$status" 1
done
run xml set r.xml '/r/a b' 1
expect_failure 'cannot write r.xml: it would be no XML any more: line 2: "=" is expected'
run xml add r.xml /r 'a b'
expect_failure '"a b": Not a name that an XML file can hold'
run xml rename r.xml /r ''
expect_failure '"": Not a name that an XML file can hold'
run xml set r.xml /r $'a\001b'
expect_failure 'control byte 1: XML has no way to hold this'
run xml del r.xml /r
expect_failure 'cannot delete /r in r.xml: An XML file has a root element'
run xml del r.xml /r/none
expect_failure 'cannot find /r/none in r.xml: No such element, or this is no path'
run xml set r.xml /s 1
expect_failure 'cannot add /s in r.xml: No such element, or this is no path'
expect_equal "$(cat r.xml)" '<r/>'
printf '<r><a><b/></a></r>' >r.xml
run xml set r.xml /r/a 1
expect_failure 'cannot find a text of /r/a in r.xml: The element does not begin with one'
expect_equal "$(cat r.xml)" '<r><a><b/></a></r>'

# Files that are none.
run xml get none.xml /r
expect_failure 'cannot read none.xml: No such file or directory'
run xml ls .
expect_failure 'cannot read .: Is a directory'
: >empty.xml
run xml get empty.xml /r
expect_failure 'cannot find /r in empty.xml: The file holds no element'
run_on_full_disk xml set s.xml /config/new 2
expect_failure 'cannot write s.xml: File too large'
run xml get s.xml /config/new
expect_output 1
expect_equal "$(find . -name '*.xml.*')" ''

# Charsets: bytes are kept, and references beyond ASCII are only decoded where UTF-8 is declared.
printf '<?xml version="1.0" encoding="GBK"?>\n<r k="\xd6\xd0&#65;">\xce\xc4&#8364;&#65;</r>\n' >gbk.xml
run xml get gbk.xml /r
expect_equal "$(od -An -tx1 <out | tr -d ' \n')" "cec4$(printf '&#8364;A\n' | od -An -tx1 | tr -d ' \n')"
run xml set gbk.xml /r 2 --attribute j
expect_equal "$(od -An -tx1 <gbk.xml | tr -d ' \n')" "$(printf \
    '<?xml version="1.0" encoding="GBK"?>\n<r k="\xd6\xd0&#65;" j="2">\xce\xc4&#8364;&#65;</r>\n' |
    od -An -tx1 | tr -d ' \n')"
printf '\xef\xbb\xbf<r>1</r>' >bom.xml
run xml set bom.xml /r 2
expect_equal "$(od -An -tx1 <bom.xml | tr -d ' \n')" "efbbbf$(printf '<r>2</r>\n' | od -An -tx1 | tr -d ' \n')"

# Wrong usage.
run xml get s.xml
expect_usage 'PATH is required'
run xml set s.xml /r
expect_usage VALUE
run xml
expect_usage 'subcommand is required'

# Real files, with another reader as judge.
if ! python3 -c 'import xml.etree' 2>/dev/null; then
    echo 'no python3 here: nobody judges the real files'
    exit 0
fi
cat >judge.py <<'END'
import sys
import xml.etree.ElementTree as tree


def plain(element):
    text = element.text or ""
    return (element.tag, element.attrib, text if len(element) == 0 else text.strip(), (element.tail or "").strip(),
            [plain(child) for child in element])


def root(name):
    return tree.parse(name).getroot()


if sys.argv[1] == "same":
    sys.exit(plain(root(sys.argv[2])) != plain(root(sys.argv[3])))
if sys.argv[1] == "text":
    print(root(sys.argv[2]).find(sys.argv[3]).text)
END
judged=0
for file in /usr/share/mime/packages/freedesktop.org.xml /usr/share/xml/iso-codes/iso_639-3.xml; do
    if [[ ! -r $file ]]; then
        echo "not here: $file"
        continue
    fi
    run xml fmt "$file" -o real.xml
    expect_silence
    python3 judge.py same "$file" real.xml || fail "fmt has changed $file"
    expect_equal "$(grep -c '<!--' real.xml)" "$(grep -c '<!--' "$file")"
    cp "$file" real.xml
    root=$(python3 -c 'import sys, xml.etree.ElementTree as t; print(t.parse(sys.argv[1]).getroot().tag.split("}")[-1])' "$file")
    run xml set real.xml "/$root/added[k=v]/text" ' <&> "é" '
    expect_silence
    expect_equal "$(python3 judge.py text real.xml '{*}added/{*}text')" ' <&> "é" '
    run xml del real.xml "/$root/added[k=v]"
    expect_silence
    python3 judge.py same "$file" real.xml || fail "set and del have changed $file"
    judged=1
done
if [[ $judged == 1 && -r /usr/share/mime/packages/freedesktop.org.xml ]]; then
    run xml get /usr/share/mime/packages/freedesktop.org.xml '/mime-info/mime-type[type=text\x2fhtml]/comment'
    expect_output "$(python3 judge.py text /usr/share/mime/packages/freedesktop.org.xml \
        "{*}mime-type[@type='text/html']/{*}comment")"
fi
