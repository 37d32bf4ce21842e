-- The columns of table ?1 in the file as those of the library's: what to read for each, by position, and what differs.
-- Some ids are written as the negative number of the same 32 bits.
SELECT count(found.cid) AS columns,
       group_concat(coalesce(format('"%w"', found.name), iif(laid."notnull", '''''', 'NULL'))
                    || iif(laid.name IN ('req_id', 'content_id', 'offset'), ' & 4294967295', '')
                    || ' AS c' || cid) AS list,
       group_concat(iif(laid.name IS found.name AND laid.type IS found.type, NULL,
                        format('%s %s for %s %s', found.name, found.type, laid.name, laid.type)), ', ') AS differences
FROM pragma_table_info(?1, 'main') AS laid LEFT JOIN pragma_table_info(?1, 'copy') AS found USING (cid);
