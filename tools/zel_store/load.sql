-- The library's tables that are in the file too, with their columns by position: what differs, and what gives the
-- statements that add the rows. Some ids are written as the negative number of the same 32 bits.
SELECT t.name, group_concat(iif(laid.name IS found.name AND laid.type IS found.type, NULL, format('%s %s for %s %s',
                                found.name, found.type, laid.name, laid.type)), ', ') AS differences,
       format('SELECT ''INSERT OR IGNORE INTO main.%s VALUES('' || %s || '')'' AS statement FROM copy.%s', t.name,
              group_concat(replace(iif(laid.name IN ('req_id', 'content_id', 'offset'),
                                       'quote(iif(@ BETWEEN -2147483648 AND -1, @ + 4294967296, @))', 'quote(@)'), '@',
                                   coalesce(format('"%w"', found.name), iif(laid."notnull", '''''', 'NULL'))),
                           ' || '','' || '), t.name) AS reading
FROM main.sqlite_master AS t JOIN copy.sqlite_master AS other USING (name)
JOIN pragma_table_info(t.name, 'main') AS laid LEFT JOIN pragma_table_info(t.name, 'copy') AS found USING (cid)
WHERE t.name NOT GLOB 'sqlite_*' GROUP BY t.rowid;
